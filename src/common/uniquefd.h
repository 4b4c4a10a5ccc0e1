#pragma once

#include <utility>

#include <unistd.h>

/// The one owner of a file descriptor: closes it when it goes.
///
/// A descriptor below zero stands for none. Move-only; not thread-safe.
class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd)
    {
    }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1))
    {
    }
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other) {
            reset(std::exchange(other.m_fd, -1));
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd()
    {
        reset();
    }

    int get() const
    {
        return m_fd;
    }
    bool isValid() const
    {
        return m_fd >= 0;
    }
    /// Closes what is held and holds `fd` instead. Leaves the error number of the caller alone.
    void reset(int fd = -1);
    /// Hands the descriptor over to the caller, who closes it.
    int release()
    {
        return std::exchange(m_fd, -1);
    }

private:
    int m_fd = -1;
};
