#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

/// Owns one open file descriptor and closes it.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor &&other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    bool isOpen() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }

    /// Closes the descriptor. False, with errno set, when what was written to it got lost.
    bool close() { return ::close(std::exchange(m_descriptor, -1)) == 0 || errno == EINTR; }

    /// Closes the descriptor if it is open; errno stays as it is.
    void reset()
    {
        if (isOpen()) {
            const int error = errno;
            close();
            errno = error;
        }
    }

private:
    int m_descriptor = -1;
};

} // namespace platform
