// The local files of simulated uploads: sizes around the block size, and two of the same name.
#pragma once

#include "tests/fakes/temp_folder.h"

#include <sys/stat.h>

#include <utility>
#include <vector>

namespace quenmoor {

struct SimulatedSource {
    std::filesystem::path path;
    std::size_t size;
    std::string grown; // the content, followed by what the file may grow by
    bool damaged = false;

    void write(std::size_t bytes) const
    {
        std::ofstream(path, std::ios::binary) << grown.substr(0, bytes);
    }

    void repair() const
    {
        if (!is_regular_file(symlink_status(path)))
            std::filesystem::remove(path);
        write(size);
    }

    // `kind` is 0 to 5.
    void damage(int kind, std::size_t bytes)
    {
        repair();
        damaged = true;
        if (kind < 2)
            return write(kind == 0 ? grown.size() : bytes);
        std::filesystem::remove(path);
        if (kind == 3)
            std::filesystem::create_directory(path);
        else if (kind == 4)
            mkfifo(path.c_str(), 0600);
        else if (kind == 5) // cannot be opened, and is not lost
            std::filesystem::create_symlink(path, path);
    }

    // True if no retry can read `bytes` bytes.
    bool lost(std::size_t bytes) const
    {
        std::error_code failed;
        const auto status = std::filesystem::status(path, failed);
        return is_regular_file(status) ? file_size(path) < bytes : status_known(status);
    }
};

// Used by one thread.
struct SimulatedSources : std::vector<SimulatedSource> {
    SimulatedSources()
    {
        const std::pair<const char*, unsigned> rows[]{{"a/clip.mov", 40000}, {"b/clip.mov", 16385},
                                                      {"a/empty", 0},        {"a/byte", 1},
                                                      {"b/block", 16384},    {"b/less", 16383}};
        for (const auto& [name, size] : rows) {
            std::filesystem::create_directory((folder_.path() / name).parent_path());
            push_back({folder_.path() / name, size, sampleContent(size + 5, size), true});
        }
        repair();
    }

    void repair()
    {
        for (SimulatedSource& source : *this)
            if (std::exchange(source.damaged, false))
                source.repair();
    }

private:
    const TempFolder folder_;
};

} // namespace quenmoor
