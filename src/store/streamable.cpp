#include "streamable.h"

#include <cstring>

namespace xpath_store {

namespace {

// Reads an expression's text; every reader leaves the position unchanged when it fails.
class Text {
  public:
    explicit Text(const std::string& text) : s(text) {}

    bool end() const { return at >= s.size(); }
    char peek(std::size_t ahead = 0) const { return at + ahead < s.size() ? s[at + ahead] : 0; }
    void blanks() {
        while (peek() == ' ' || peek() == '\t' || peek() == '\n' || peek() == '\r')
            ++at;
    }
    bool take(const char* token) {
        std::size_t n = std::strlen(token);
        if (s.compare(at, n, token) != 0) return false;
        at += n;
        return true;
    }
    // An unprefixed name in ASCII: what both this reader and the engine read the same way.
    bool name(std::string& out) {
        std::size_t from = at;
        if (!start(peek())) return false;
        while (start(peek()) || (peek() >= '0' && peek() <= '9') || peek() == '-' || peek() == '.')
            ++at;
        out = s.substr(from, at - from);
        return true;
    }
    bool literal(std::string& out) {
        char quote = peek();
        if (quote != '"' && quote != '\'') return false;
        std::size_t close = s.find(quote, at + 1);
        if (close == std::string::npos) return false;
        out = s.substr(at + 1, close - at - 1);
        at = close + 1;
        return true;
    }
    bool number(unsigned long& out) {
        std::size_t from = at;
        unsigned long n = 0;
        while (peek() >= '0' && peek() <= '9' && n < 100000000)
            n = n * 10 + static_cast<unsigned long>(s[at++] - '0');
        if (at == from || (peek() >= '0' && peek() <= '9') || peek() == '.') {
            at = from;
            return false;
        }
        out = n;
        return true;
    }
    std::size_t position() const { return at; }
    void back(std::size_t to) { at = to; }
    std::string from(std::size_t begin) const { return s.substr(begin, at - begin); }

  private:
    static bool start(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    }

    const std::string& s;
    std::size_t at = 0;
};

// A predicate that looks only at its element and below, and whose value is never a number
// (a number would compare with the element's position): relative paths of names, *, @name,
// text() and ., literals, comparisons, and/or, not(), and a few string functions.
class Downward {
  public:
    explicit Downward(Text& text) : t(text) {}

    // Whether the predicate reads below the element's own attributes.
    bool below = false;

    // True when the predicate up to the closing ] has that form; numeric says a bare number.
    bool expression(bool& numeric) {
        numeric = false;
        if (!either(numeric)) return false;
        t.blanks();
        return t.peek() == ']';
    }

  private:
    // Operands apart by a word: "or" between ands, "and" between comparisons.
    template <class Next>
    bool joined(const char* w, bool& numeric, Next next) {
        if (!next(numeric)) return false;
        while (word(w)) {
            bool ignored;
            if (!next(ignored)) return false;
            numeric = false;
        }
        return true;
    }
    bool either(bool& numeric) {
        return joined("or", numeric, [this](bool& n) { return both(n); });
    }
    bool both(bool& numeric) {
        return joined("and", numeric, [this](bool& n) { return compared(n); });
    }
    bool compared(bool& numeric) {
        if (!operand(numeric)) return false;
        t.blanks();
        if (t.take("!=") || t.take("<=") || t.take(">=") || t.take("=") || t.take("<") ||
            t.take(">")) {
            bool ignored;
            numeric = false;
            return operand(ignored);
        }
        return true;
    }
    bool operand(bool& numeric) {
        t.blanks();
        std::string text;
        unsigned long n;
        numeric = false;
        if (t.literal(text)) return true;
        if (t.number(n)) return numeric = true;
        if (t.take("(")) {
            if (!either(numeric)) return false;
            t.blanks();
            return t.take(")");
        }
        for (const char* function : {"not(", "contains(", "starts-with(", "string(",
                                     "normalize-space(", "boolean(", "true(", "false("}) {
            if (!t.take(function)) continue;
            t.blanks();
            if (t.take(")")) {  // string() and normalize-space() read the element's own text
                below = below || function[0] == 's' || function[0] == 'n';
                return true;
            }
            do {
                bool ignored;
                if (!either(ignored)) return false;
                t.blanks();
            } while (t.take(","));
            return t.take(")");
        }
        return path();
    }
    // name, *, @name, @*, text() or ., joined by / or //; an attribute or text() ends it.
    bool path() {
        for (;;) {
            std::string name;
            if (t.take("@")) {
                if (!t.take("*") && !t.name(name)) return false;
                return !t.take("/") && t.peek() != '(';
            }
            if (t.take("text()")) return below = true, t.peek() != '/';
            if (t.take("."))
                below = true;
            else if (t.take("*") || t.name(name))
                below = true;
            else
                return false;
            if (t.peek() == '(' || t.peek() == ':' || t.peek() == '.') return false;
            if (!t.take("/")) return true;
            t.take("/");
        }
    }
    bool word(const char* w) {
        std::size_t at = t.position();
        t.blanks();
        std::string name;
        if (t.name(name) && name == w) return true;
        t.back(at);
        return false;
    }

    Text& t;
};

bool condition(Text& t, Condition& c) {
    const std::size_t begin = t.position();
    t.blanks();
    if (t.take("@") && t.name(c.name)) {
        t.blanks();
        c.kind = Condition::attribute;
        if (t.take("]")) return true;
        if (t.take("=")) {
            t.blanks();
            c.hasValue = t.literal(c.value);
            t.blanks();
            if (c.hasValue && t.take("]")) return true;
        }
    }
    t.back(begin);
    t.blanks();
    if (t.number(c.n) && (t.blanks(), t.take("]"))) {
        c.kind = Condition::position;
        return c.n > 0;
    }
    t.back(begin);
    t.blanks();
    if (t.take("last()") && (t.blanks(), t.take("]"))) {
        c.kind = Condition::last;
        return true;
    }
    t.back(begin);
    bool numeric = false;
    Downward downward(t);
    if (downward.expression(numeric) && !numeric) {
        c.kind = Condition::content;
        c.atStart = !downward.below;
        c.expression = t.from(begin);
        return t.take("]");
    }
    return false;
}

bool step(Text& t, Step& s) {
    s.descendant = t.take("/");
    if (t.take("@")) {
        s.test = Step::attribute;
        return t.take("*") || t.name(s.name);
    }
    if (t.take("text()")) {
        s.test = Step::text;
        return true;
    }
    if (!t.take("*") && !t.name(s.name)) return false;
    if (t.peek() == '(' || t.peek() == ':') return false;  // a function, a node type, an axis
    while (t.take("[")) {
        s.conditions.emplace_back();
        if (!condition(t, s.conditions.back())) return false;
    }
    return true;
}

bool speculative(const Condition& c) {
    return c.kind == Condition::last || (c.kind == Condition::content && !c.atStart);
}

// A step whose matches wait for a later event (its [last()] or a content condition) is
// followed by child steps only, so each selected node waits for one element of that step.
// [n] and [last()] count among siblings, so they come before any condition that waits.
bool ordered(const Plan& plan) {
    bool waiting = false;
    for (const Step& s : plan.steps) {
        if (waiting && s.descendant) return false;
        bool waits = false, last = false;
        for (const Condition& c : s.conditions) {
            if ((c.kind == Condition::position || c.kind == Condition::last) && (waits || last))
                return false;
            last = last || c.kind == Condition::last;
            waits = waits || speculative(c);
        }
        waiting = waiting || waits;
    }
    return true;
}

}  // namespace

bool planStream(const std::string& expression, Plan& plan) {
    plan.steps.clear();
    Text t(expression);
    while (!t.end()) {
        if (!t.take("/")) return false;
        plan.steps.emplace_back();
        if (!step(t, plan.steps.back())) return false;
        if (plan.steps.back().test != Step::element && !t.end()) return false;
    }
    const std::size_t n = plan.steps.size();
    if (n == 0 || n > 60) return false;
    // An attribute or text of the document node itself: nothing to stream.
    if (n == 1 && plan.steps[0].test != Step::element && !plan.steps[0].descendant) return false;
    return ordered(plan);
}

}  // namespace xpath_store
