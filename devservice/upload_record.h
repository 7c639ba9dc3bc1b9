// The note beside an unfinished copy: how many bytes the whole file has.
//
// Only the part and its record together say what was being uploaded; either alone says nothing.
#pragma once

#include "devservice/file_handle.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quenmoor {

// The open folders of one store. Everything in them is reached through these, so that no name
// and no link leads anywhere else.
struct StoreFolders {
    FileHandle root;    // finished files, under their own names
    FileHandle parts;   // unfinished ones
    FileHandle records; // a record for each of them
    FileHandle drafts;  // records being written
};

// The noted size of the file `name`. Nothing when there is no record, or none that makes sense.
[[nodiscard]] std::optional<std::int64_t> readRecord(const StoreFolders& folders,
                                                     const std::string& name);

// Replaces the record of `name`. After a crash the old one stands or the new one, never a mix.
// False, with errno, when the disk would not take it.
[[nodiscard]] bool writeRecord(const StoreFolders& folders, const std::string& name,
                               std::int64_t size);

void removeRecord(const StoreFolders& folders, const std::string& name);

// Writes all of `bytes` at the descriptor's position. False, with errno, when it could not;
// a part of them may stand there then.
[[nodiscard]] bool writeAll(int descriptor, const char* bytes, std::size_t count);

} // namespace quenmoor
