#ifndef XPATH_TESTS_FILES_H
#define XPATH_TESTS_FILES_H

// Bytes that tests read back: a file's, and what a writer puts into a stdio stream.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

inline std::string readFile(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return "(absent)";
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}

// What write(FILE*) puts out, gathered in memory; ok is what write returned.
template <class Write>
std::string captured(Write write, bool& ok) {
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&text, &size);
    ok = write(out);
    std::fclose(out);
    std::string result(text, size);
    std::free(text);
    return result;
}

#endif
