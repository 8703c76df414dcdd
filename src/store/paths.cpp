// The set side's path language: cutting a path at its last step and its trailing condition.
// Neither cut parses XPath: each searches backwards for one byte.

#include "common.h"
#include "xmlloader.h"

using xpath_store::str;

bool XMLLoaderImpl::splitPath(const XString& path, XString& parent, XString& node) {
    unsigned long slash = path.rfind("/", XString::npos);
    if (slash == XString::npos) {
        logger.trace("splitPath", LOG_ERROR, "'/' not found in string: " + str(path));
        return false;
    }
    parent = path.substr(0, slash);
    node = path.substr(slash + 1);
    return true;
}

bool XMLLoaderImpl::splitCondition(const XString& path, XString& node, XString& name,
                                   XString& value) {
    auto log = logger.getFunctor<Logger::Id>("splitCondition");
    unsigned long length = path.length();
    if (length == 0 || path[static_cast<unsigned int>(length - 1)] != ']') return false;
    unsigned long open = path.rfind("[", XString::npos);
    if (open == XString::npos) {
        value = XString();
        XLOG(log, LOG_ERROR, "']' found with no matching '[' in " + str(path));
        return false;
    }
    XString condition = path.substr(open + 1, length - open - 2);
    node = path.substr(0, open);
    unsigned long equals = condition.rfind("=", XString::npos);
    if (equals == XString::npos) {
        value = XString();
        XLOG(log, LOG_ERROR, "Non-equality condition found in 'set' path: " + str(path));
        return false;
    }
    // Trim the left side of blanks; strip the value of blanks and one quote at each end.
    unsigned long from = 0, to = equals;
    while (to > from && condition[static_cast<unsigned int>(to - 1)] == ' ')
        --to;
    while (from < to && condition[static_cast<unsigned int>(from)] == ' ')
        ++from;
    unsigned long vfrom = equals + 1, vto = condition.length();
    for (bool quote = false; vfrom < vto; ++vfrom) {
        unsigned char c = condition[static_cast<unsigned int>(vfrom)];
        if (c == '"' && !quote)
            quote = true;
        else if (c != ' ')
            break;
    }
    for (bool quote = false; vto > vfrom; --vto) {
        unsigned char c = condition[static_cast<unsigned int>(vto - 1)];
        if (c == '"' && !quote)
            quote = true;
        else if (c != ' ')
            break;
    }
    // Outside the language: an empty side. Taken as a path without a condition.
    if (from == to || vfrom == vto) {
        value = XString();
        XLOG(log, LOG_ERROR, "Empty name or value in condition of 'set' path: " + str(path));
        return false;
    }
    name = condition.substr(from, to - from);
    value = condition.substr(vfrom, vto - vfrom);
    return true;
}
