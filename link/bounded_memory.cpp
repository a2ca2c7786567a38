#include "link/bounded_memory.h"

#include <new>

namespace halvo::link {

namespace json = boost::json;

void* BoundedMemory::do_allocate(std::size_t bytes, std::size_t align) {
    MemoryCount& count = *count_;
    if (bytes > count.limit - count.used) {
        throw std::bad_alloc();
    }
    void* block = json::storage_ptr().get()->allocate(bytes, align); // the heap
    count.used += bytes;
    if (count.used > count.peak) {
        count.peak = count.used;
    }
    return block;
}

void BoundedMemory::do_deallocate(void* block, std::size_t bytes, std::size_t align) {
    json::storage_ptr().get()->deallocate(block, bytes, align);
    count_->used -= bytes;
}

bool BoundedMemory::do_is_equal(const json::memory_resource& other) const noexcept {
    return this == &other;
}

BoundedStorage makeBoundedStorage(std::size_t limit) {
    auto count = std::make_shared<MemoryCount>(MemoryCount{limit, 0, 0});
    return {json::make_shared_resource<BoundedMemory>(count), std::move(count)};
}

} // namespace halvo::link
