// The memory of a rule set's records: one arena for the whole set, freed
// at once when the last record goes.
//
// The records of a rule set are made together and dropped together, so
// keeping track of each key and string on the heap is wasted effort.  The
// arena takes its memory in blocks of a fixed, modest size, and a dropped
// arena leaves its blocks (up to a limit) for the next one: an editor
// session that reads the rule set again and again does not go back to the
// system for fresh pages each time.
#pragma once

#include <boost/json/memory_resource.hpp>
#include <boost/json/storage_ptr.hpp>
#include <cstddef>
#include <vector>

namespace halvo::rules {

class RecordArena final : public boost::json::memory_resource {
  public:
    RecordArena() = default;
    ~RecordArena() override;
    RecordArena(const RecordArena&) = delete;
    RecordArena& operator=(const RecordArena&) = delete;

  private:
    void* do_allocate(std::size_t size, std::size_t alignment) override;
    void do_deallocate(void* pointer, std::size_t size, std::size_t alignment) override;
    bool do_is_equal(const boost::json::memory_resource& other) const noexcept override;

    std::vector<void*> blocks_;    // fixed-size blocks
    std::vector<void*> ownBlocks_; // one large allocation each
    char* free_ = nullptr;         // the unused end of the newest block
    std::size_t room_ = 0;
};

// A storage that owns a new arena; every JSON value made with it (or a copy
// of it) keeps the arena alive.
boost::json::storage_ptr makeRecordArena();

} // namespace halvo::rules
