#ifndef XPATH_STORE_COMMON_H
#define XPATH_STORE_COMMON_H

// What the store's units share: the lazy log line, XString as std::string, and libxml2's
// out-of-memory watch. Internal: not installed.

#include <libxml/xmlerror.h>

#include <string>

#include "xstring.h"

// A line is assembled only when its level passes, so a silent call costs no string work.
#define XLOG(functor, level, text)                           \
    do {                                                     \
        if ((functor).passes(level)) (functor)(level, text); \
    } while (0)

namespace xpath_store {

inline std::string str(const XString& s) {
    return s.stringValue(std::string());
}
inline const xmlChar* xml(const char* s) {
    return reinterpret_cast<const xmlChar*>(s);
}

// libxml2 reports many failed allocations only through its last error, and carries on with a
// shorter text, a lost child or an empty value. The outermost store operation clears that
// error; every operation fails if memory ran out on the way.
class MemoryWatch {
  public:
    MemoryWatch() {
        if (depth++ == 0) xmlResetLastError();
    }
    ~MemoryWatch() { --depth; }
    MemoryWatch(const MemoryWatch&) = delete;
    MemoryWatch& operator=(const MemoryWatch&) = delete;

    static bool ranOut() {
        const xmlError* last = xmlGetLastError();
        return last && last->code == XML_ERR_NO_MEMORY;
    }
    bool ok(bool result) const { return result && !ranOut(); }

  private:
    static inline int depth = 0;
};

}  // namespace xpath_store

#endif
