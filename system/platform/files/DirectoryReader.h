#pragma once

#include <cstddef>
#include <memory>

namespace platform {

/// Lists the entries of one folder after another through a single large buffer.
class DirectoryReader
{
public:
    struct Entry
    {
        const char *name = nullptr; ///< valid until the next call
        unsigned char type = 0;     ///< DT_REG and so on, DT_UNKNOWN where the disk does not tell
    };

    /// Reads so many bytes at a time, each name taking up to 280.
    explicit DirectoryReader(std::size_t bufferSize = std::size_t{64} * 1024);

    /// Begins with the open folder, which stays the caller's.
    void start(int folder);

    /// The next entry in the disk's order without "." and "..", or null at the end, when error()
    /// is 0, and on failure.
    const Entry *next();

    int error() const { return m_error; }

private:
    bool fill();

    std::unique_ptr<std::byte[]> m_buffer;
    std::size_t m_bufferSize;
    std::size_t m_length = 0;
    std::size_t m_position = 0;
    int m_folder = -1;
    int m_error = 0;
    Entry m_entry;
};

} // namespace platform
