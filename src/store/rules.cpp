#include "rules.h"

#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <cstring>

namespace xpath_store {

namespace {

bool xmlChar32(unsigned int c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

const char* bytes(const XString& text) {
    return reinterpret_cast<const char*>(static_cast<const unsigned char*>(text));
}

// Length of a character reference, or a reference to one of XML's five predefined entities,
// at s ("&...;"), or 0. (A document's own entities may not parse where the value goes.)
std::size_t knownReference(const unsigned char* s) {
    // Bounded, so that a text full of '&' and no ';' isn't scanned to its end for each one.
    const std::size_t longest = 256;
    const unsigned char* end = static_cast<const unsigned char*>(
        std::memchr(s, ';', strnlen(reinterpret_cast<const char*>(s), longest)));
    if (end == nullptr || end - s < 2) return 0;
    std::size_t length = static_cast<std::size_t>(end - s) + 1;
    if (s[1] == '#') {
        bool hex = s[2] == 'x';
        const unsigned char* p = s + (hex ? 3 : 2);
        if (p == end) return 0;
        unsigned long value = 0;
        for (; p < end; ++p) {
            int digit = (*p >= '0' && *p <= '9')   ? *p - '0'
                        : !hex                     ? -1
                        : (*p >= 'a' && *p <= 'f') ? *p - 'a' + 10
                        : (*p >= 'A' && *p <= 'F') ? *p - 'A' + 10
                                                   : -1;
            if (digit < 0) return 0;
            value = value * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
            if (value > 0x10FFFF) return 0;
        }
        return xmlChar32(static_cast<unsigned int>(value)) ? length : 0;
    }
    static const char* const predefined[] = {"amp", "lt", "gt", "quot", "apos"};
    for (const char* name : predefined)
        if (length - 2 == std::strlen(name) && std::memcmp(s + 1, name, length - 2) == 0)
            return length;
    return 0;
}

}  // namespace

bool validText(const XString& text) {
    unsigned long n = text.length();
    if (n > XML_MAX_TEXT_LENGTH) return false;
    const unsigned char* s = text;
    for (unsigned long i = 0; i < n;) {
        unsigned char c = s[i];
        int extra = c < 0x80 ? 0 : c < 0xC2 ? -1 : c < 0xE0 ? 1 : c < 0xF0 ? 2 : c < 0xF5 ? 3 : -1;
        if (extra < 0 || n - i <= static_cast<unsigned long>(extra)) return false;
        unsigned int cp = extra ? c & (0x3F >> extra) : c;
        for (int k = 1; k <= extra; ++k) {
            unsigned char next = s[i + k];
            if ((next & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (next & 0x3F);
        }
        static const unsigned int least[] = {0, 0x80, 0x800, 0x10000};  // no overlong forms
        if (cp < least[extra] || !xmlChar32(cp)) return false;
        i += static_cast<unsigned long>(extra) + 1;
    }
    return true;
}

// The library's name check decodes any byte as a lead byte, so the bytes are checked first.
bool validName(const XString& name) {
    unsigned long n = name.length();
    return n > 0 && n <= XML_MAX_NAME_LENGTH && validText(name) && xmlValidateNCName(name, 0) == 0;
}

bool validAttributeName(const XString& name) {
    bool prefixed = name.length() > 4 && std::strncmp(bytes(name), "xml:", 4) == 0;
    return validName(prefixed ? name.substr(4) : name);
}

bool validComment(const XString& text) {
    unsigned long n = text.length();
    return !std::strstr(bytes(text), "--") &&
           !(n && text[static_cast<unsigned int>(n - 1)] == '-') && validText(text);
}

bool validInstruction(const XString& text) {
    return !std::strstr(bytes(text), "?>") && validText(text);
}

bool contentText(const XString& value, std::string& out) {
    if (!validText(value)) return false;
    out.clear();
    for (const unsigned char* p = value; *p; ++p) {
        if (*p != '&') {
            out += static_cast<char>(*p);
            continue;
        }
        std::size_t n = knownReference(p);
        if (n) {
            out.append(reinterpret_cast<const char*>(p), n);
            p += n - 1;
        } else {
            out += "&amp;";
        }
    }
    return true;
}

}  // namespace xpath_store
