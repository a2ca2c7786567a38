// What a printer writes to a stream, as bytes, for comparison with golden
// text (tabs and all).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace halvo::testkit {

template <class Print> std::string printedBy(Print&& print) {
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&data, &size);
    if (out == nullptr) {
        return "(no memory stream)";
    }
    print(out);
    std::fclose(out);
    std::string text(data, size);
    std::free(data);
    return text;
}

} // namespace halvo::testkit
