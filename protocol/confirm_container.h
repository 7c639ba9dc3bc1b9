// Tells the server what to do about the copy that it already holds. Client to server.
//
// resume  overwrite
// true    false      continue the copy
// true    true       replace it
// false   false      leave it alone: the upload is cancelled
#pragma once

#include <string>

namespace quenmoor {

class ConfirmContainer {
public:
    ConfirmContainer(bool resume, bool overwrite) : resume_(resume), overwrite_(overwrite) {}

    bool resume() const { return resume_; }
    void setResume(bool resume) { resume_ = resume; }
    bool overwrite() const { return overwrite_; }
    void setOverwrite(bool overwrite) { overwrite_ = overwrite; }

    std::string XMLpayload() const;

private:
    bool resume_;
    bool overwrite_;
};

} // namespace quenmoor
