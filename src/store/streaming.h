#ifndef XPATH_STORE_STREAMING_H
#define XPATH_STORE_STREAMING_H

// Read mode without the tree: the values of a path, written while the file is parsed, in
// memory that doesn't grow with the file. Internal: not installed.

#include <cstdio>
#include <string>

namespace xpath_store {

enum class Streamed {
    written,      // the values are in out
    unsupported,  // the path or the document needs the tree; nothing was printed
    unreadable,   // the file isn't there or doesn't parse; the library's diagnostics are out
    unwritable,   // the values could not be written or held back; errno says why
};

// Writes to out, for the document in file, exactly what loading it and writing the values of
// expression would: the same bytes, the same diagnostics of the library, the same failures.
Streamed streamValues(const std::string& file, const std::string& expression, std::FILE* out);

}  // namespace xpath_store

#endif
