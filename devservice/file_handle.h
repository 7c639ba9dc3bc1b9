// Owns one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace quenmoor {

class FileHandle {
public:
    FileHandle() = default;
    // Takes `descriptor` over; a negative one is none.
    explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
    ~FileHandle() { reset(); }
    FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept
    {
        if (this != &other) {
            reset();
            descriptor_ = std::exchange(other.descriptor_, -1);
        }
        return *this;
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }

    void reset()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }

private:
    int descriptor_ = -1;
};

} // namespace quenmoor
