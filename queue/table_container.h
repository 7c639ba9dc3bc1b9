// One row of the status table.
#pragma once

#include <cstdint>
#include <string>

namespace quenmoor {

class TableContainer {
public:
    // `filename` is for showing: see displayText().
    TableContainer(std::string filename, std::string status, std::int32_t percent)
        : percent_(percent), filename_(std::move(filename)), status_(std::move(status))
    {
    }

    // 0 to 100.
    std::int32_t percent() const { return percent_; }
    void setPercent(std::int32_t percent) { percent_ = percent; }
    const std::string& filename() const { return filename_; }
    void setFilename(std::string filename) { filename_ = std::move(filename); }
    const std::string& status() const { return status_; }
    void setStatus(std::string status) { status_ = std::move(status); }

private:
    std::int32_t percent_;
    std::string filename_;
    std::string status_;
};

} // namespace quenmoor
