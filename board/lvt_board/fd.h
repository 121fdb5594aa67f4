/// A file descriptor that is closed with its owner.
#pragma once

#include <utility>

#include <unistd.h>

class fd_t {
public:
    fd_t() = default;
    explicit fd_t(int number) : number_(number) {}
    fd_t(fd_t &&other) noexcept : number_(std::exchange(other.number_, -1)) {}
    fd_t &operator=(fd_t &&other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }
    ~fd_t()
    {
        if (number_ >= 0)
            close(number_);
    }

    int number() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_ = -1;
};
