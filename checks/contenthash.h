#pragma once

#include <QByteArray>

#include <cstddef>
#include <memory>

/// The XXH128 of a content that comes in pieces.
class ContentHash
{
    Q_DISABLE_COPY(ContentHash)

public:
    ContentHash();
    ~ContentHash();

    void add(const char *data, std::size_t size);
    /// 16 bytes, the most significant first.
    [[nodiscard]] QByteArray result() const;

private:
    struct State; // the library's own
    std::unique_ptr<State> state_;
};
