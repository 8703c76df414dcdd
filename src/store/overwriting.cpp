// The rule of one value: when the path selects one node before anything is made, that node
// takes the value and nothing else in the document changes, whatever the path's form. And
// what a trailing condition makes stays only if the path selects it.

#include "common.h"
#include "evaluation.h"
#include "setting.h"

namespace xpath_store {

// name: the trailing condition's left side, no text when there is none.
bool Set::overwrite(xmlNodePtr node, const XString& name, const XString& value) {
    if (node == nullptr) {
        XLOG(log, LOG_ERROR, "NULL nodes retrieved from: " + str(parent));
        return false;
    }
    if (name.length() > 0) madeBeside(node, name, value);
    const XString& text = cursor.take();
    const bool stored = node->type == XML_ATTRIBUTE_NODE
                            ? setAttribute(reinterpret_cast<xmlAttrPtr>(node), text)
                            : writeValue(node, text);
    if (!stored) XLOG(log, LOG_ERROR, "Value can't be stored in " + str(path));
    return stored;
}

// Where a trailing condition's element would be made after the node, among its siblings, the
// full steps reach the same document by another road, and that road is taken with its lines:
// the element is made, and goes again as the surplus once the node has the value.
void Set::madeBeside(xmlNodePtr node, const XString& name, const XString& value) {
    if (node->type != XML_ELEMENT_NODE || !validCondition(element, name, value)) return;
    {
        Evaluation parents(impl, conditionParent);
        if (parents.count() == 0 || parents.nodes()->nodeTab[0] != node->parent) return;
    }
    Made made;
    xmlNodePtr beside = nullptr;
    makeNode(impl, path, Pass::fit, &beside);
    if (!made.any()) return;
    Evaluation after(impl, path);
    xmlNodeSetPtr set = after.nodes();
    const bool surplus = set && set->nodeNr == 2 && set->nodeTab[0] == node &&
                         set->nodeTab[1] == beside && beside != nullptr;
    after.release();
    if (surplus)
        XLOG(log, LOG_TRACE, "Removing nodes from: " + str(parent));
    else
        XLOG(log, LOG_TRACE, "Taking out what the path doesn't select: " + str(path));
    made.undo();
}

// The element of a trailing condition is made first. False when the path doesn't select it:
// then what was made for it is taken out again.
bool Set::makeCondition(bool& go) {
    Made made;
    xmlNodePtr element = nullptr;
    const bool madeIt = makeNode(impl, path, Pass::fit, &element);
    if (!made.any()) {
        go = madeIt && go;
        return true;
    }
    if (madeIt) {
        Evaluation after(impl, path);
        for (int i = 0; after.nodes() && i < after.nodes()->nodeNr; ++i)
            if (after.nodes()->nodeTab[i] == element) return true;
    }
    XLOG(log, LOG_TRACE, "Taking out what the path doesn't select: " + str(path));
    made.undo();
    go = madeIt && go;  // the path's own nodes, if any, still take the values
    return false;
}

}  // namespace xpath_store
