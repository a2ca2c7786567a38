// A memory resource for JSON values that counts what it hands out and
// refuses (std::bad_alloc) anything past its limit, so that whatever a
// document looks like, building it never takes more than the limit.
#pragma once

#include <boost/json/memory_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <cstddef>
#include <memory>

namespace halvo::link {

// What a BoundedMemory holds; read it while or after the memory is used.
struct MemoryCount {
    std::size_t limit = 0;
    std::size_t used = 0;
    std::size_t peak = 0; // the most it ever held at once
};

class BoundedMemory final : public boost::json::memory_resource {
  public:
    explicit BoundedMemory(std::shared_ptr<MemoryCount> count) : count_(std::move(count)) {}

  private:
    void* do_allocate(std::size_t bytes, std::size_t align) override;
    void do_deallocate(void* block, std::size_t bytes, std::size_t align) override;
    bool do_is_equal(const boost::json::memory_resource& other) const noexcept override;

    std::shared_ptr<MemoryCount> count_;
};

// A shared BoundedMemory as JSON containers keep it, and its count.
struct BoundedStorage {
    boost::json::storage_ptr storage;
    std::shared_ptr<const MemoryCount> memory;
};
BoundedStorage makeBoundedStorage(std::size_t limit);

} // namespace halvo::link
