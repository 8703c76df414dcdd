#include "reader.h"

#include <libxml/parserInternals.h>

#include <cstring>

#include "common.h"

// The library's own way of raising an error, to raise the tree builder's errors word for word.
extern "C" void __xmlRaiseError(xmlStructuredErrorFunc, xmlGenericErrorFunc, void*, void*, void*,
                                int, int, xmlErrorLevel, const char*, int, const char*, const char*,
                                const char*, int, int, const char*, ...);

namespace xpath_store {

Reader::Reader(const Plan& plan, xmlParserCtxtPtr ctxt, Ordered& output)
    : plan(plan),
      ctxt(ctxt),
      output(output),
      n(plan.steps.size()),
      waiting([&] {
          for (const Step& s : plan.steps)
              for (const Condition& c : s.conditions)
                  if (c.kind == Condition::last || (c.kind == Condition::content && !c.atStart))
                      return true;
          return false;
      }()),
      decode(ctxt->replaceEntities == 0),
      selects(plan.steps.back().test),
      selectsBelow(plan.steps.back().descendant),
      names(n + 1),
      conditionNames(n + 1),
      indexOf(n + 1),
      predicates(n + 1) {
    auto dictionary = [ctxt](const std::string& name) {
        return name.empty() ? nullptr : xmlDictLookup(ctxt->dict, xml(name.c_str()), -1);
    };
    for (std::size_t k = 1; k <= n; ++k) {
        const Step& s = plan.steps[k - 1];
        names[k] = dictionary(s.name);
        if (s.conditions.empty() && !waiting) plain |= bit(k);
        if (s.test == Step::element)
            (s.descendant ? descendantContexts : childContexts) |= bit(k - 1);
        for (const Condition& c : s.conditions) {
            conditionNames[k].push_back(dictionary(c.name));
            indexOf[k].push_back(c.kind == Condition::position ? static_cast<int>(counterCount++)
                                 : c.kind == Condition::last   ? static_cast<int>(lastCount++)
                                                               : -1);
            predicates[k].emplace_back(c.kind == Condition::content ? new Predicate(c.expression)
                                                                    : nullptr);
            askAttributes = askAttributes || (c.kind == Condition::content &&
                                              c.expression.find('@') != std::string::npos);
        }
    }
    levels.resize(1);
    levels[0].matched = levels[0].within = bit(0);
    if (waiting) levels[0].waits.assign(n + 1, Waits());
    levels[0].counters.assign(counterCount, 0);
    levels[0].candidates.assign(lastCount, nullptr);
    shown.type = XML_ELEMENT_NODE;
    shown.name = xml("");
    textChild.type = XML_TEXT_NODE;
    otherChild.type = XML_ELEMENT_NODE;
}

bool Reader::compiled() const {
    for (const auto& step : predicates)
        for (const auto& p : step)
            if (p && !p->ok()) return false;
    return true;
}

// A copy of the element starting now, for predicates about it: made once, when first needed.
xmlNodePtr Reader::copy() {
    Level& me = levels[depth];
    if (!me.copied) {
        const Tag& t = tag;
        me.copy = subtree.open(t.localname, t.prefix, t.uri, askAttributes ? t.count : 0,
                               t.attributes, decode);
        me.copied = true;
        if (me.copy == nullptr) giveUp();
    }
    return me.copy;
}

// An attribute's value as the tree holds it, without a copy where it needs no decoding.
const char* Reader::attributeValue(const xmlChar* const* a, std::size_t& length) {
    const char* value = reinterpret_cast<const char*>(a[3]);
    length = static_cast<std::size_t>(a[4] - a[3]);
    if (!decode || std::memchr(value, '&', length) == nullptr) return value;
    decoded = xpath_store::attributeValue(a[3], a[4], true);
    length = decoded.size();
    return decoded.data();
}

// Whether the element starting now has the unprefixed attribute name (with that value).
bool Reader::attribute(const xmlChar* name, const Condition& c) {
    for (int i = 0; i < tag.count; ++i) {
        const xmlChar* const* a = tag.attributes + 5 * i;
        if (a[0] != name || a[1] != nullptr) continue;
        if (!c.hasValue) return true;
        std::size_t length;
        const char* value = attributeValue(a, length);
        return length == c.value.size() && std::memcmp(value, c.value.data(), length) == 0;
    }
    return false;
}

// Whether the element starting now, of step k's name, meets its conditions; what the match
// waits for goes with it, and the predicates to ask when it ends go to asked.
bool Reader::matches(std::size_t k, Level& parent, Level& me) {
    const Step& s = plan.steps[k - 1];
    const std::size_t asking = asked.size();
    // What the match waits for: the parent's match of the step before (child steps only
    // follow a step that waits), then this element's own decisions.
    Waits* waits = waiting ? &me.waits[k] : nullptr;
    if (waits && s.descendant) waits->clear();
    if (waits && !s.descendant) *waits = parent.waits[k - 1];
    for (std::size_t i = 0; i < s.conditions.size(); ++i) {
        const Condition& c = s.conditions[i];
        const int at = indexOf[k][i];
        bool holds = true;
        switch (c.kind) {
            case Condition::attribute:
                holds = attribute(conditionNames[k][i], c);
                break;
            case Condition::position:
                holds = ++parent.counters[at] == c.n;
                break;
            case Condition::last: {
                Wait& candidate = parent.candidates[at];
                if (candidate) candidate->state = Decision::dropped, decided = true;
                candidate = std::make_shared<Decision>();
                waits->push_back(candidate);
                break;
            }
            case Condition::content:
                if (c.atStart) {
                    const int answer = copy() ? predicates[k][i]->holds(copy()) : 0;
                    if (answer < 0) giveUp();
                    holds = answer > 0;
                } else {
                    waits->push_back(std::make_shared<Decision>());
                    asked.push_back({depth, nullptr, predicates[k][i].get(), waits->back()});
                }
                break;
        }
        if (!holds || unsupported) {
            asked.resize(asking);
            return false;
        }
    }
    return true;
}

void Reader::start(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri, int count,
                   const xmlChar** attributes) {
    // The tree builder files xml:id values and may complain of them: the tree reads such files.
    for (int i = 0; i < count; ++i)
        if (attributes[5 * i + 1] == ctxt->str_xml && xmlStrEqual(attributes[5 * i], xml("id")))
            return giveUp();
    tag = {localname, prefix, uri, count, attributes};
    if (depth > 0) child(levels[depth], Level::other);
    if (++depth == levels.size()) levels.emplace_back();
    Level& parent = levels[depth - 1];
    Level& me = levels[depth];
    me.matched = 0;
    me.hasChildren = me.firstIsText = me.copied = me.textsSelected = false;
    me.last = Level::none;
    me.slot = me.textSlot = Ordered::none;
    me.copy = nullptr;
    if (counterCount) me.counters.assign(counterCount, 0);
    if (lastCount) me.candidates.assign(lastCount, nullptr);
    if (waiting) me.waits.resize(n + 1);  // each is set where its step matches
    shown.children = shown.last = nullptr;
    ctxt->node = &shown;
    sawRoot = true;
    const bool copying = subtree.building();
    if (copying) copy();  // everything below a copied element is copied too

    // Each step whose context the parent is: bit k-1 for step k.
    for (Mask m = (parent.matched & childContexts) | (parent.within & descendantContexts); m;
         m &= m - 1) {
        const std::size_t k = static_cast<std::size_t>(__builtin_ctzll(m)) + 1;
        if (names[k] && (localname != names[k] || prefix || uri)) continue;
        if (!(plain & bit(k)) && !matches(k, parent, me)) continue;
        me.matched |= bit(k);
    }
    me.within = parent.within | me.matched;
    if (unsupported) return;
    const bool asking = !asked.empty();
    if (asking) {
        for (Check& c : asked)
            c.node = copy();
        checks.insert(checks.end(), asked.begin(), asked.end());
        asked.clear();
    }
    if (me.copied && !copying && !asking) {  // a copy for its attributes alone has served
        subtree.close();
        me.copied = false;
    }

    if (selects == Step::element) {
        if (me.matched & bit(n)) {
            me.slot = output.open(waitsOf(me, n));
            values.push_back(me.slot);
        }
    } else if ((selectsBelow ? me.within : me.matched) & bit(n - 1)) {
        me.textsSelected = selects == Step::text;
        for (int i = 0; selects == Step::attribute && i < count; ++i) {
            const xmlChar* const* a = attributes + 5 * i;
            if (names[n] && (a[0] != names[n] || a[1])) continue;
            std::size_t length;
            const char* value = attributeValue(a, length);
            output.value(waitsOf(me, n - 1), value, length);
        }
    }
    moveOn();
}

void Reader::end() {
    Level& me = levels[depth];
    for (; !checks.empty() && checks.back().depth == depth; checks.pop_back()) {
        const int answer =
            checks.back().node ? checks.back().predicate->holds(checks.back().node) : -1;
        if (answer < 0 || !subtree.ok()) return giveUp();
        checks.back().decision->state = answer ? Decision::kept : Decision::dropped;
        decided = true;
    }
    if (me.copied) subtree.close();
    if (me.textSlot != Ordered::none) output.close(me.textSlot);
    if (me.slot != Ordered::none) {
        output.close(me.slot);
        values.pop_back();
    }
    keepLast(me);  // the last child of each [last()] is known now
    if (--depth == 0) {
        ctxt->node = nullptr;
        keepLast(levels[0]);
    } else {
        show(levels[depth]);
    }
    moveOn();
}

void Reader::keepLast(Level& level) {
    for (Wait& candidate : level.candidates)
        if (candidate) candidate->state = Decision::kept, decided = true;
}

void Reader::characters(const xmlChar* bytes, int length, bool cdata) {
    if (depth == 0) return;
    Level& me = levels[depth];
    const Level::Kind kind = cdata ? Level::cdata : Level::text;
    const std::size_t n = static_cast<std::size_t>(length);
    if (me.last == kind) {
        if (me.textLength + n > XML_MAX_TEXT_LENGTH && !(ctxt->options & XML_PARSE_HUGE))
            return hugeText();
        me.textLength += n;
    } else {
        child(me, kind);
        me.textLength = n;
        if (me.textsSelected) {
            const Waits& w = waitsOf(me, plan.steps.size() - 1);
            if (cdata)  // a CDATA section selected as text() has no children: no value
                output.value(w, "", 0);
            else
                me.textSlot = output.open(w);
        }
    }
    const char* text = reinterpret_cast<const char*>(bytes);
    if (me.textSlot != Ordered::none) output.add(me.textSlot, text, n);
    for (Ordered::Id slot : values)
        output.add(slot, text, n);
    if (subtree.building()) {
        subtree.text(bytes, length, cdata);
        moveOn();
    }
}

void Reader::leaf(const xmlChar* content, const xmlChar* target) {
    if (depth == 0) return;  // beside the root: not in any value
    Level& me = levels[depth];
    child(me, Level::other);
    if (me.slot != Ordered::none && content)
        output.add(me.slot, reinterpret_cast<const char*>(content),
                   std::strlen(reinterpret_cast<const char*>(content)));
    if (!subtree.building()) return;
    if (target)
        subtree.instruction(target, content);
    else
        subtree.comment(content);
}

// The tree builder's refusal of a text over the parser's limit, raised as it raises it.
void Reader::hugeText() {
    const char* what = "out of memory\n";
    __xmlRaiseError(ctxt->sax->initialized == XML_SAX2_MAGIC ? ctxt->sax->serror : nullptr,
                    ctxt->vctxt.error, ctxt->vctxt.userData, ctxt, nullptr, XML_FROM_PARSER,
                    XML_ERR_NO_MEMORY, XML_ERR_ERROR, nullptr, 0, what, nullptr, nullptr, 0, 0,
                    "xmlSAX2Characters: huge text node", what, nullptr);
    ctxt->errNo = XML_ERR_NO_MEMORY;
    ctxt->instate = XML_PARSER_EOF;
    ctxt->disableSAX = 1;
}

}  // namespace xpath_store
