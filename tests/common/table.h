#ifndef XPATH_TESTS_TABLE_H
#define XPATH_TESTS_TABLE_H

// Test tables: a case a line, fields apart by tabs (a run of tabs is one), '#' starts a comment,
// "-" is an empty field, and \n, \t, \\ and \xHH escape bytes. Also: what code writes.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using Row = std::vector<std::string>;

inline std::string unescape(const std::string& field) {
    std::string out;
    for (std::size_t i = 0; field != "-" && i < field.size(); ++i) {
        if (field[i] != '\\' || i + 1 == field.size()) {
            out += field[i];
        } else if (field[++i] == 'x') {
            out += static_cast<char>(std::stoi(field.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += field[i] == 'n' ? '\n' : field[i] == 't' ? '\t' : field[i];
        }
    }
    return out;
}

inline std::vector<Row> readTable(const std::string& name) {
    std::ifstream in(std::string(TABLE_DIR) + "/" + name);
    if (!in) throw std::runtime_error("no table " + name);  // a missing table isn't a pass
    std::vector<Row> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        rows.emplace_back();
        for (std::size_t at = 0, end; at != std::string::npos;
             at = line.find_first_not_of('\t', end)) {
            end = line.find('\t', at);
            rows.back().push_back(unescape(line.substr(at, end - at)));
        }
    }
    return rows;
}

// The parts of a field apart by '|'; an empty field has none.
inline std::vector<std::string> parts(const std::string& field) {
    std::vector<std::string> out;
    for (std::size_t at = 0, end = 0; !field.empty() && end != std::string::npos; at = end + 1)
        out.push_back(field.substr(at, (end = field.find('|', at)) - at));
    return out;
}

// What write puts into a stdio stream; ok is what it returned.
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

inline std::string readFile(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return in ? all.str() : "(absent)";
}

#endif
