// A temporary folder, deleted with everything in it by its destructor.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace quenmoor {

class TempFolder {
public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "quenmoor-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    // Creates the file `name` with `content`. Returns its path.
    std::filesystem::path file(const std::string& name, const std::string& content) const
    {
        const std::filesystem::path path = path_ / name;
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

private:
    std::filesystem::path path_;
};

inline std::string contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// `size` pseudo-random bytes, so that no block equals another.
inline std::string sampleContent(std::size_t size, unsigned seed = 1)
{
    std::string content(size, '\0');
    unsigned state = seed * 2654435761U + 1;
    for (char& c : content) {
        state = state * 1664525U + 1013904223U;
        c = static_cast<char>(state >> 24U);
    }
    return content;
}

} // namespace quenmoor
