#ifndef XPATH_BENCH_CELLS_H
#define XPATH_BENCH_CELLS_H

// The cells of the test tables the identity checks read: \n, \t, \\ and \xHH escape bytes,
// and {N*text} stands for text N times.

#include <string>

namespace bench {

inline std::string unescape(const std::string& cell) {
    std::string text;
    for (std::size_t i = 0; i < cell.size(); ++i) {
        if (cell[i] == '{' && cell.find('*', i) < cell.find('}', i)) {
            std::size_t star = cell.find('*', i), close = cell.find('}', i);
            std::string piece = unescape(cell.substr(star + 1, close - star - 1));
            for (long n = std::stol(cell.substr(i + 1, star - i - 1)); n > 0; --n)
                text += piece;
            i = close;
        } else if (cell[i] != '\\' || i + 1 == cell.size()) {
            text += cell[i];
        } else if (cell[++i] == 'x' && i + 2 < cell.size()) {
            text += static_cast<char>(std::stoi(cell.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            text += cell[i] == 'n' ? '\n' : cell[i] == 't' ? '\t' : cell[i];
        }
    }
    return text;
}

}  // namespace bench

#endif
