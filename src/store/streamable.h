#ifndef XPATH_STORE_STREAMABLE_H
#define XPATH_STORE_STREAMABLE_H

// Which expressions can be answered while the document is read, decided from their text
// alone, and what they ask for. Internal: not installed.

#include <string>
#include <vector>

namespace xpath_store {

// One predicate of an element step.
struct Condition {
    enum Kind {
        attribute,  // [@name] or, with hasValue, [@name="value"]
        position,   // [n]: the n-th child of its parent among those passing the earlier ones
        last,       // [last()]: the last of those; known when the parent ends
        content,    // anything else that looks only at the element and below; known at its end
    };
    Kind kind;
    std::string name, value;  // attribute: the name and the value compared with
    bool hasValue = false;
    unsigned long n = 0;     // position
    std::string expression;  // content: the predicate's own text
    bool atStart = false;    // content that reads attributes only: known at the start tag
};

struct Step {
    enum Test { element, attribute, text };
    bool descendant = false;  // reached by // rather than /
    Test test = element;
    std::string name;  // empty for *
    std::vector<Condition> conditions;
};

// A location path from the root: element steps, then possibly one attribute or text() step.
struct Plan {
    std::vector<Step> steps;
};

// The plan of expression when it can be streamed; false sends it to the tree.
bool planStream(const std::string& expression, Plan& plan);

}  // namespace xpath_store

#endif
