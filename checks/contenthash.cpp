#include "checks/contenthash.h"

#include <new>
#include <xxhash.h>

struct ContentHash::State
{
    XXH3_state_t *hash = XXH3_createState();
};

ContentHash::ContentHash()
    : state_(std::make_unique<State>())
{
    if (state_->hash == nullptr)
        throw std::bad_alloc();
    XXH3_128bits_reset(state_->hash);
}

ContentHash::~ContentHash()
{
    XXH3_freeState(state_->hash);
}

void ContentHash::add(const char *data, std::size_t size)
{
    XXH3_128bits_update(state_->hash, data, size);
}

QByteArray ContentHash::result() const
{
    XXH128_canonical_t bytes;
    XXH128_canonicalFromHash(&bytes, XXH3_128bits_digest(state_->hash));
    return {reinterpret_cast<const char *>(bytes.digest), sizeof bytes.digest};
}
