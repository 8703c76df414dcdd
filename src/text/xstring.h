#ifndef XPATH_XSTRING_H
#define XPATH_XSTRING_H

// The store's text value: one NUL-terminated libxml2 string with value semantics.
// Lengths and positions count bytes.

#include <libxml/xmlstring.h>

#include <iosfwd>
#include <string>

#include "object.h"

class XString : public Object {
  public:
    // "Not found" of rfind, "to the end" of substr, and "not yet measured" of len.
    static const unsigned long npos = static_cast<unsigned long>(-1);

    XString();
    XString(const unsigned char* s);
    XString(const char* s);
    // adopt: take ownership of s, which must come from libxml2's allocator.
    XString(unsigned char* s, bool adopt);
    XString(const std::string& s);
    XString(const XString& o);
    virtual ~XString();

    XString& operator=(const XString& o);

    // Never null: a value with no text gives an empty string.
    operator const unsigned char*() const;
    // No bound check; a value with no text gives 0.
    unsigned char operator[](unsigned int i) const;

    // Measures once and caches; an empty buffer is released here.
    unsigned long length() const;
    bool blank() const { return xmls == nullptr; }

    bool operator==(const XString& o) const;
    bool operator!=(const XString& o) const { return !(*this == o); }

    // Appends o (which must be another object) and returns a copy of the result.
    XString operator+=(const XString& o);

    unsigned long rfind(const XString& needle, unsigned long pos) const;
    unsigned long rfind(const char* needle, unsigned long pos) const;
    XString substr(unsigned long start, unsigned long count = npos) const;

    // The text byte for byte; the argument isn't read.
    std::string stringValue(const std::string& ignored) const;

  private:
    friend XString operator+(const XString& a, const char* b);
    friend XString operator+(const XString& a, const XString& b);
    friend XString operator+(const char* a, const XString& b);
    // The effect of += on this value, without the copy that += returns.
    void append(const XString& o);

    mutable xmlChar* xmls;
    mutable unsigned long len;
};

XString operator+(const XString& a, const char* b);
XString operator+(const XString& a, const XString& b);
XString operator+(const char* a, const XString& b);
std::ostream& operator<<(std::ostream& out, const XString& v);

#endif
