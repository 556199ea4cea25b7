#pragma once

#include <unistd.h>

#include <utility>

namespace glintmark {

/// Owns an open file descriptor and closes it. Empty if the number is negative, as after a failed
/// call; the `errno` of that call stays untouched.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor() {
        if (number_ >= 0) {
            ::close(number_);
        }
    }

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_ = -1;
};

}  // namespace glintmark
