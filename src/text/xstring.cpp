#include "xstring.h"

#include <libxml/xmlmemory.h>

#include <cstring>
#include <ostream>

namespace {

// A copy of n bytes; n may count bytes past an embedded NUL, which strdup would lose.
xmlChar* copyBytes(const xmlChar* s, unsigned long n) {
    return xmlStrndup(s, static_cast<int>(n));
}

}  // namespace

XString::XString() : xmls(nullptr), len(0) {}

XString::XString(const unsigned char* s) : xmls(s ? xmlStrdup(s) : nullptr), len(npos) {}

XString::XString(const char* s) : XString(reinterpret_cast<const unsigned char*>(s)) {}

XString::XString(unsigned char* s, bool adopt)
    : xmls(adopt ? s : (s ? xmlStrdup(s) : nullptr)), len(npos) {}

XString::XString(const std::string& s)
    : xmls(s.empty() ? nullptr : copyBytes(reinterpret_cast<const xmlChar*>(s.data()), s.size())),
      len(s.size()) {}

XString::XString(const XString& o) : xmls(nullptr), len(o.len) {
    if (o.xmls == nullptr) return;
    // Measuring the source may release its empty buffer; the copy then gets one of its own.
    unsigned long n = o.length();
    xmls = n ? copyBytes(o.xmls, n) : xmlStrdup(reinterpret_cast<const xmlChar*>(""));
}

XString::~XString() {
    if (xmls) xmlFree(xmls);
}

XString& XString::operator=(const XString& o) {
    if (this == &o) return *this;
    if (xmls) xmlFree(xmls);
    // Assignment never measures: a known length copies exactly, an unknown one up to NUL.
    if (o.xmls == nullptr)
        xmls = nullptr;
    else
        xmls = o.len != npos ? copyBytes(o.xmls, o.len) : xmlStrdup(o.xmls);
    len = o.len;
    return *this;
}

XString::operator const unsigned char*() const {
    static XString emptyxmls(const_cast<unsigned char*>(reinterpret_cast<const unsigned char*>("")),
                             false);
    return xmls ? xmls : emptyxmls.xmls;
}

unsigned char XString::operator[](unsigned int i) const {
    return xmls ? xmls[i] : 0;
}

unsigned long XString::length() const {
    if (xmls == nullptr) return 0;
    if (len == npos) len = static_cast<unsigned long>(xmlStrlen(xmls));
    if (len != 0) return len;
    xmlFree(xmls);
    xmls = nullptr;
    return 0;
}

bool XString::operator==(const XString& o) const {
    unsigned long n = length();
    if (n != o.length()) return false;
    return n == 0 || xmlStrncmp(xmls, o.xmls, static_cast<int>(n)) == 0;
}

void XString::append(const XString& o) {
    if (length() == 0) {
        *this = o;
        length();  // the copy that += returns measures the target; appending alone must too
        return;
    }
    unsigned long n = o.length();
    if (n == 0) return;
    // One reallocation and one copy: both lengths are known, so the text isn't rescanned.
    xmlChar* grown = static_cast<xmlChar*>(xmlRealloc(xmls, len + n + 1));
    if (grown == nullptr) {
        xmlFree(xmls);
        xmls = nullptr;
        return;
    }
    std::memcpy(grown + len, o.xmls, n + 1);
    xmls = grown;
    len += n;
}

XString XString::operator+=(const XString& o) {
    if (&o == this) {  // appending to itself would read a buffer while it is reallocated
        XString self(o);
        return *this += self;
    }
    if (length() == 0) {
        *this = o;
        return *this;  // the copy measures the target, and keeps an empty buffer of its own
    }
    append(o);
    return *this;
}

unsigned long XString::rfind(const XString& needle, unsigned long pos) const {
    unsigned long n = length();
    unsigned long start = (pos != npos && pos <= n) ? pos : n;
    unsigned long m = needle.length();
    if (m == 0) return start;
    if (xmls == nullptr || m > n) return npos;
    // A match can't run past the end of the text, so the last candidate is n - m.
    if (start > n - m) start = n - m;
    for (unsigned long i = start + 1; i-- > 0;)
        if (xmls[i] == needle.xmls[0] && std::memcmp(xmls + i, needle.xmls, m) == 0) return i;
    return npos;
}

unsigned long XString::rfind(const char* needle, unsigned long pos) const {
    return rfind(XString(needle), pos);
}

XString XString::substr(unsigned long start, unsigned long count) const {
    if (count == npos) count = length() - start;  // only "to the end" measures the value
    if (count == 0 || xmls == nullptr) return XString();
    // The caller keeps start + count inside the text; a careless one still reads no further.
    for (unsigned long i = 0; i < start; ++i)
        if (xmls[i] == 0) return XString();
    unsigned long take = strnlen(reinterpret_cast<const char*>(xmls + start), count);
    if (take == 0) return XString();
    XString part;
    part.xmls = copyBytes(xmls + start, take);
    part.len = part.xmls ? take : 0;
    return part;
}

std::string XString::stringValue(const std::string&) const {
    unsigned long n = length();
    return n ? std::string(reinterpret_cast<const char*>(xmls), n) : std::string();
}

XString operator+(const XString& a, const char* b) {
    if (a.length() == 0) return XString(b);
    XString joined(a);
    joined.append(XString(b));
    return joined;
}

XString operator+(const XString& a, const XString& b) {
    if (a.length() == 0) return b;
    if (b.length() == 0) return a;
    XString joined(a);
    joined.append(b);
    return joined;
}

XString operator+(const char* a, const XString& b) {
    if (b.length() == 0) return XString(a);
    XString joined(a);
    joined.append(b);
    return joined;
}

std::ostream& operator<<(std::ostream& out, const XString& v) {
    if (v.blank()) return out;
    unsigned long n = v.length();
    return out.write(reinterpret_cast<const char*>(static_cast<const unsigned char*>(v)),
                     static_cast<std::streamsize>(n));
}
