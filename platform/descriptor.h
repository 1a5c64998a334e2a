#pragma once

#include <QFile>
#include <QString>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

/// A POSIX file descriptor that is closed with its owner. Closing leaves errno as it was.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int descriptor)
        : descriptor_(descriptor)
    {
    }
    /// Opens `path`, as open(2) with O_CLOEXEC; errno says why it is not open.
    Descriptor(const QString &path, int flags, mode_t mode = 0)
        : descriptor_(::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, mode))
    {
    }
    ~Descriptor()
    {
        const int error = errno;
        if (isOpen())
            ::close(descriptor_);
        errno = error;
    }
    Descriptor(Descriptor &&other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1))
    {
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    /// -1 if it is not open.
    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_ = -1;
};
