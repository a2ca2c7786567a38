// Finding a word in a small fixed vocabulary (clause words, record keys) with
// one comparison: a hash of the word's length and three of its bytes picks
// the only entry it can be.  The hash is chosen at compile time so that no
// two entries of the vocabulary share a slot.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace halvo::rules {

template <std::size_t Count> class WordLookup {
  public:
    consteval explicit WordLookup(const std::array<std::string_view, Count>& words)
        : words_(words) {
        for (std::uint32_t seed = 1;; ++seed) {
            if (fill(seed)) {
                seed_ = seed;
                return;
            }
        }
    }

    // The index of `word` in the vocabulary, or Count when it is not there.
    std::size_t find(std::string_view word) const {
        if (word.empty()) {
            return Count;
        }
        const std::uint8_t slot = slots_[hash(word, seed_)];
        if (slot == 0) {
            return Count;
        }
        const std::string_view known = words_[slot - 1];
        return known.size() == word.size() && sameBytes(known, word) ? slot - 1 : Count;
    }

  private:
    static constexpr std::size_t slotCount = 128;

    // Equal-sized words of up to 16 bytes compare as two overlapping loads
    // each, with no loop whose end the processor would have to guess.
    static bool sameBytes(std::string_view a, std::string_view b) {
        const std::size_t size = a.size();
        const auto load = [](const char* at, std::size_t width) {
            std::uint64_t word = 0;
            std::memcpy(&word, at, width);
            return word;
        };
        if (size >= 8 && size <= 16) {
            return load(a.data(), 8) == load(b.data(), 8) &&
                   load(a.data() + size - 8, 8) == load(b.data() + size - 8, 8);
        }
        if (size >= 4 && size < 8) {
            return load(a.data(), 4) == load(b.data(), 4) &&
                   load(a.data() + size - 4, 4) == load(b.data() + size - 4, 4);
        }
        if (size >= 1 && size < 4) {
            return a[0] == b[0] && a[size / 2] == b[size / 2] && a[size - 1] == b[size - 1];
        }
        return a == b;
    }
    static_assert(Count < slotCount / 2, "keep the table sparse");

    static constexpr std::size_t hash(std::string_view word, std::uint32_t seed) {
        const auto byte = [&](std::size_t at) {
            return static_cast<std::uint32_t>(static_cast<unsigned char>(word[at]));
        };
        const std::uint32_t mixed = static_cast<std::uint32_t>(word.size()) * 0x9E3779B1u ^
                                    byte(0) * (seed | 1u) ^
                                    byte(word.size() / 2) * (seed * 0x85EBCA6Bu | 1u) ^
                                    byte(word.size() - 1) * (seed * 0xC2B2AE35u | 1u);
        return (mixed ^ mixed >> 15) % slotCount;
    }

    // Places every word for `seed`; false on a collision.
    constexpr bool fill(std::uint32_t seed) {
        slots_ = {};
        for (std::size_t i = 0; i < Count; ++i) {
            std::uint8_t& slot = slots_[hash(words_[i], seed)];
            if (slot != 0) {
                return false;
            }
            slot = static_cast<std::uint8_t>(i + 1);
        }
        return true;
    }

    std::array<std::string_view, Count> words_;
    std::array<std::uint8_t, slotCount> slots_{}; // word index + 1; 0: none
    std::uint32_t seed_ = 0;
};

} // namespace halvo::rules
