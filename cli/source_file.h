// Whether a file that the user named can be sent at all.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace quenmoor {

// Why `path` cannot be read as a plain file, in words; nothing when it can. Opens the file, reads
// nothing, never waits for a pipe's other end.
std::optional<std::string> whyUnreadable(const std::filesystem::path& path);

// The same for a file that was `size` bytes long when it was queued: one that became shorter
// cannot be sent either.
std::optional<std::string> whyUnreadable(const std::filesystem::path& path, std::int64_t size);

} // namespace quenmoor
