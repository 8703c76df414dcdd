#ifndef XPATH_TESTS_TABLE_H
#define XPATH_TESTS_TABLE_H

// Test tables: one case a line, fields apart by tabs (a run of tabs is one separator), lines
// starting with '#' are comments, "-" is an empty field, and \n, \t, \\ and \xHH escape bytes.

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

using Row = std::vector<std::string>;

inline std::string unescape(const std::string& field) {
    if (field == "-") return "";
    std::string out;
    for (std::size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\' || i + 1 == field.size()) {
            out += field[i];
            continue;
        }
        char c = field[++i];
        if (c == 'x' && i + 2 < field.size()) {
            out += static_cast<char>(std::stoi(field.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
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
        Row row;
        for (std::size_t at = 0; at < line.size();) {
            std::size_t end = line.find('\t', at);
            if (end == std::string::npos) end = line.size();
            row.push_back(unescape(line.substr(at, end - at)));
            at = line.find_first_not_of('\t', end);
            if (at == std::string::npos) break;
        }
        rows.push_back(row);
    }
    return rows;
}

// The parts of a field apart by '|'; an empty field has none.
inline std::vector<std::string> parts(const std::string& field) {
    std::vector<std::string> out;
    if (field.empty()) return out;
    for (std::size_t at = 0;;) {
        std::size_t end = field.find('|', at);
        out.push_back(field.substr(at, end - at));
        if (end == std::string::npos) return out;
        at = end + 1;
    }
}

#endif
