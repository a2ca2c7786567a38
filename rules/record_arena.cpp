#include "rules/record_arena.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

namespace halvo::rules {

namespace {

// Below the size at which the C library maps memory straight from the
// system, so that the blocks live in the heap.
constexpr std::size_t blockSize = 64 * 1024;
// Larger requests (a long string, the rules array) get memory of their own.
constexpr std::size_t ownBlockThreshold = blockSize / 4;
// Blocks kept for the next arena: enough for some hundred thousand rules.
constexpr std::size_t keptBlockLimit = 1024;

// Blocks left by dropped arenas.  Records may be dropped on another thread
// than the one that parses, hence the lock.
class BlockStore {
  public:
    void* take() {
        std::lock_guard lock(mutex_);
        if (blocks_.empty()) {
            return nullptr;
        }
        void* block = blocks_.back();
        blocks_.pop_back();
        return block;
    }

    void give(std::vector<void*>& blocks) {
        std::lock_guard lock(mutex_);
        while (!blocks.empty() && blocks_.size() < keptBlockLimit) {
            blocks_.push_back(blocks.back());
            blocks.pop_back();
        }
    }

  private:
    std::mutex mutex_;
    std::vector<void*> blocks_;
};

// Never destroyed, so that records that outlive static destruction can
// still hand their blocks back.
BlockStore& blockStore() {
    static BlockStore* const store = new BlockStore;
    return *store;
}

void* allocateOrThrow(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

RecordArena::~RecordArena() {
    try {
        blockStore().give(blocks_);
    } catch (...) {
        // Keeping blocks is only a saving; without it they are freed below.
    }
    for (void* block : blocks_) {
        std::free(block);
    }
    for (void* block : ownBlocks_) {
        std::free(block);
    }
}

void* RecordArena::do_allocate(std::size_t size, std::size_t alignment) {
    if (size > ownBlockThreshold) {
        ownBlocks_.reserve(ownBlocks_.size() + 1);
        ownBlocks_.push_back(allocateOrThrow(size));
        return ownBlocks_.back();
    }
    // Alignments are powers of two.
    std::size_t padding = (0 - reinterpret_cast<std::uintptr_t>(free_)) & (alignment - 1);
    if (padding + size > room_) {
        blocks_.reserve(blocks_.size() + 1);
        void* block = blockStore().take();
        blocks_.push_back(block != nullptr ? block : allocateOrThrow(blockSize));
        free_ = static_cast<char*>(blocks_.back());
        room_ = blockSize;
        padding = 0; // the heap's blocks are aligned for anything
    }
    char* const result = free_ + padding;
    free_ = result + size;
    room_ -= padding + size;
    return result;
}

void RecordArena::do_deallocate(void* /*pointer*/, std::size_t /*size*/,
                                std::size_t /*alignment*/) {
    // Everything goes when the arena goes.
}

bool RecordArena::do_is_equal(const boost::json::memory_resource& other) const noexcept {
    return this == &other;
}

boost::json::storage_ptr makeRecordArena() {
    return boost::json::make_shared_resource<RecordArena>();
}

} // namespace halvo::rules
