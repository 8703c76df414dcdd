// The set algorithm: fitting the document to a path and its values, one node per value.
// What is there is overwritten, what is missing is made from the path's text, the surplus is
// removed. setOrCreateVector and createNode call each other: a missing path is built by
// recursion through both, one level per missing step, the nodes made from the root down.

#include <algorithm>

#include "common.h"
#include "evaluation.h"
#include "rules.h"
#include "setting.h"

namespace xpath_store {

namespace {

bool setPath(XMLLoaderImpl& impl, const XString& path, const std::vector<XString>& values,
             const std::vector<bool>& flags, Pass pass) {
    return Set(impl, path, values, flags).run(pass);
}

// One blank value, as a parent or a condition's element is made.
bool setBlank(XMLLoaderImpl& impl, const XString& path, Pass pass) {
    return setPath(impl, path, std::vector<XString>(1), std::vector<bool>(1, true), pass);
}

}  // namespace

bool Set::run(Pass pass) {
    if (impl.doc == nullptr || values.size() != flags.size() || depth.tooDeep()) {
        XLOG(log, LOG_ERROR,
             (impl.doc == nullptr             ? "No document to set "
              : values.size() != flags.size() ? "Values and flags differ in number for "
                                              : "Path too deep to build: ") +
                 str(path));
        return false;
    }
    bool go = XMLLoaderImpl::splitPath(path, parent, last);
    if (go && last.length() == 0) {
        XLOG(log, LOG_ERROR, "Path names no node to set: " + str(path));
        return false;
    }
    XString condName, condValue;
    const bool conditional = XMLLoaderImpl::splitCondition(path, parent, condName, condValue);
    wanted = static_cast<unsigned int>(std::count(flags.begin(), flags.end(), true));
    attribute = last.length() > 0 && last[0] == '@';
    parentHasText = parent != XString("");
    // A condition on the path's only step makes no node: refused, even where it selects one.
    const unsigned long slash = conditional ? parent.rfind("/", XString::npos) : 0;
    const bool onlyStep = conditional && (slash == XString::npos || slash == 0);
    if (conditional && !onlyStep) {
        conditionParent = parent.substr(0, slash);
        element = parent.substr(slash + 1);
    }

    // One value, and the path selects one node before anything is made: it takes the value.
    if (go && wanted == 1 && pass != Pass::make && !onlyStep) {
        Evaluation before(impl, path);
        if (!before.ok()) return noParent();
        if (before.count() == 1) return overwrite(before.nodes()->nodeTab[0], condName, condValue);
    }
    const bool takenOut = conditional && !makeCondition(go);

    // An attribute target has exactly one parent per value. One value never removes parents.
    unsigned int holders = 0;
    if (go && attribute && !countOf(impl, parent, holders)) return noParent();
    if (go && attribute && holders != wanted) {
        if (wanted == 1 && holders > 1) {
            XLOG(log, LOG_ERROR, "More than one parent node for the attribute of " + str(path));
            return false;
        }
        XLOG(log, LOG_TRACE, "Creating or removing parent nodes for " + str(path));
        go = setPath(impl, parent, std::vector<XString>(wanted), std::vector<bool>(wanted, true),
                     Pass::fit);
        if (impl.countNodes(parent) != wanted) {
            XLOG(log, LOG_ERROR, "Attempt to adjust parent nodes for " + str(path) + " failed");
            return false;
        }
    }
    // Nothing was found where something is wanted, and nothing is written.
    if (!go) return wanted == 0 ? false : noParent();
    Evaluation found(impl, path);
    if (!found.ok()) return wanted == 0 ? false : noParent();

    unsigned int count = found.count();
    if (pass == Pass::make && !conditional && count > 0) {
        XLOG(log, LOG_ERROR, "Node to make is there already: " + str(path));
        return false;
    }
    if (takenOut && count == 0) {
        XLOG(log, LOG_ERROR, "The path doesn't select what its condition makes: " + str(path));
        return false;
    }
    unsigned int above = 0;
    if (count == 0 && !attribute && parentHasText && !countOf(impl, parent, above))
        return noParent();
    if (count == 0 && !attribute && above == 0) {
        found.release();
        return makeMissing(pass);
    }
    xmlNodeSetPtr set = found.nodes();

    // The root element is never erased: a document without one doesn't parse again. Checked
    // before anything is written, where nodes would really go: what an attribute target
    // found, and the surplus of an element target that has parents to work with.
    xmlNodePtr root = xmlDocGetRootElement(impl.doc);
    bool erasing = attribute || (count > wanted && parentHasText);
    for (unsigned int i = attribute ? 0 : wanted; erasing && root && i < count; ++i) {
        if (set->nodeTab[i] == root) {
            log(LOG_ERROR, "Attempt to remove the root node!");
            return false;
        }
    }

    Overlaps overlaps(set);
    const bool written = write(set, overlaps, count);
    if (attribute) count = 0;  // what was found is gone
    if (count == wanted) return written;
    if (!written) return noParent();
    if (!parentHasText) return noParent();
    Evaluation parents(impl, parent);
    xmlNodeSetPtr to = parents.nodes();
    if (to == nullptr || to->nodeTab == nullptr || to->nodeNr == 0) return noParent();
    if (count < wanted) return add(to, count);
    parents.release();
    return remove(set, overlaps, count);
}

// Nothing found for an element target: its parent is made first, or the path names the root.
bool Set::makeMissing(Pass pass) {
    if (!parentHasText) return makeRoot();
    if (pass == Pass::again) {  // made once and still not found: the engine won't select it
        XLOG(log, LOG_ERROR, "--failed to create parent: " + str(parent));
        return false;
    }
    if (!makeNode(impl, parent, Pass::make)) return false;
    // With its parent made, the path may select a node now (".", for one).
    return setPath(impl, path, values, flags, Pass::again);
}

// A document has one root element, and it is never replaced.
bool Set::makeRoot() {
    if (xmlDocGetRootElement(impl.doc)) {
        log(LOG_ERROR, "Attempt to create a new root node!");
        return false;
    }
    bool valued = wanted == 1 && flags[0] && !values[0].blank();
    if (!validName(last) || (valued && !validText(values[0]))) {
        XLOG(log, LOG_ERROR, "Invalid name or value for a new node: " + str(path));
        return false;
    }
    XLOG(log, LOG_TRACE, "Creating new root node: " + str(last));
    xmlNodePtr root = addRoot(impl.doc, last);
    if (root == nullptr) return false;
    if (valued) writeValue(root, values[0]);
    if (wanted <= 1) return true;
    log(LOG_ERROR, "Attempt to create >1 root nodes");
    return false;
}

// Values into the nodes found, first value to first node; an attribute target's nodes are
// removed instead, to be made anew.
bool Set::write(xmlNodeSetPtr set, Overlaps& overlaps, unsigned int found) {
    unsigned int visit = attribute ? found : std::min(found, wanted);
    for (unsigned int i = 0; i < visit; ++i) {
        int at = static_cast<int>(i);
        if (overlaps.gone(at)) {  // went with a node written or removed before it
            if (!attribute) cursor.take();
            continue;
        }
        xmlNodePtr node = set->nodeTab[i];
        if (node == nullptr) {
            XLOG(log, LOG_ERROR, "NULL nodes retrieved from: " + str(parent));
            return false;
        }
        if (attribute) {
            if (!isDocument(node)) eraseEntry(set, at, overlaps);
            continue;
        }
        const XString& value = cursor.take();
        overlaps.destroyed(at, true);
        if (!writeValue(node, value)) {
            XLOG(log, LOG_ERROR, "Value can't be stored in " + str(path));
            return false;
        }
    }
    return true;
}

// The nodes still wanted: attributes one per parent, elements all in the first parent.
bool Set::add(xmlNodeSetPtr parents, unsigned int found) {
    XLOG(log, LOG_TRACE, "Adding '" + str(last) + "' nodes to: " + str(parent));
    XString attrName = attribute ? last.substr(1) : XString();
    for (unsigned int i = found; i < wanted; ++i) {
        const XString& value = cursor.take();
        void* made = nullptr;
        if (attribute)
            made = static_cast<int>(i) < parents->nodeNr
                       ? addAttribute(parents->nodeTab[i], attrName, value)
                       : nullptr;
        else
            made = addElement(parents->nodeTab[0], last, value.blank() ? nullptr : &value);
        if (made == nullptr) {
            XLOG(log, LOG_ERROR, "Failed to add nodes to: " + str(parent));
            return false;
        }
    }
    return true;
}

// The surplus: the nodes past the wanted count, with their subtrees.
bool Set::remove(xmlNodeSetPtr set, Overlaps& overlaps, unsigned int found) {
    XLOG(log, LOG_TRACE, "Removing nodes from: " + str(parent));
    for (unsigned int i = wanted; i < found; ++i) {
        int at = static_cast<int>(i);
        if (overlaps.gone(at) || (set->nodeTab[i] && isDocument(set->nodeTab[i]))) continue;
        if (set->nodeTab[i] == nullptr) {
            XLOG(log, LOG_ERROR, "NULL nodes retrieved from: " + str(parent));
            return false;
        }
        eraseEntry(set, at, overlaps);
    }
    return true;
}

bool Set::noParent() {
    XLOG(log, LOG_ERROR, "Could not retrieve parent node: " + str(parent));
    return false;
}

bool validCondition(const XString& element, const XString& name, const XString& value) {
    const bool onAttribute = name.length() > 0 && name[0] == '@';
    const XString condName = onAttribute ? name.substr(1) : name;
    return validName(element) &&
           (onAttribute ? validAttributeName(condName) : validName(condName)) && validText(value);
}

bool makeNode(XMLLoaderImpl& impl, const XString& path, Pass pass, xmlNodePtr* made) {
    auto log = XMLLoaderImpl::logger.getFunctor<Logger::Id>("createNode");
    MemoryWatch watch;
    XLOG(log, LOG_TRACE, "Creating node: " + str(path));
    XString nodePath, name, value;
    if (!XMLLoaderImpl::splitCondition(path, nodePath, name, value))
        return setBlank(impl, path, pass) && impl.countNodes(path) == 1;

    XLOG(log, LOG_TRACE, "--node is conditional");
    XString parent, element;
    if (!XMLLoaderImpl::splitPath(nodePath, parent, element)) {
        XLOG(log, LOG_ERROR, "--failed to split the valid path: " + str(nodePath));
        return false;
    }
    if (!(parent != XString(""))) {
        log(LOG_ERROR, "Attempt to create a new root node!");
        return false;
    }
    if (!validCondition(element, name, value)) {
        XLOG(log, LOG_ERROR, "Invalid name or value for a new node: " + str(path));
        return false;
    }
    unsigned int found = 0;
    if (!countOf(impl, parent, found)) {
        XLOG(log, LOG_ERROR, "Failed to locate parent node: " + str(parent));
        return false;
    }
    if (found == 0) {
        XLOG(log, LOG_TRACE, "--creating parent of conditional node");
        if (!setBlank(impl, parent, Pass::make) || impl.countNodes(parent) != 1) {
            XLOG(log, LOG_ERROR, "--failed to create parent: " + str(parent));
            return false;
        }
    }
    const bool onAttribute = name[0] == '@';
    Evaluation parents(impl, parent);
    xmlNodePtr child = nullptr;
    if (parents.count() > 0) {
        xmlNodePtr above = parents.nodes()->nodeTab[0];
        // A child element for the condition goes a level deeper than the new element.
        if (onAttribute || (above && depthOf(above) < xmlParserMaxDepth))
            child = addElement(above, element, nullptr);
    } else {
        XLOG(log, LOG_ERROR, "Failed to locate parent node: " + str(parent));
    }
    bool result = false;
    if (child == nullptr)
        XLOG(log, LOG_ERROR, "Failed to create child node:" + str(element));
    else
        result = onAttribute ? addAttribute(child, name.substr(1), value) != nullptr
                             : addElement(child, name, &value) != nullptr;
    if (!result)
        XLOG(log, LOG_ERROR, "Failed to create child node:" + str(name) + "=" + str(value));
    if (made) *made = child;
    parents.release();
    return watch.ok(result);
}

}  // namespace xpath_store

using namespace xpath_store;

bool XMLLoaderImpl::createNode(const XString& path) {
    Answers answers;
    return makeNode(*this, path, Pass::fit);
}

bool XMLLoaderImpl::setOrCreateVector(const XString& path, const std::vector<XString>& values,
                                      const std::vector<bool>& flags) {
    MemoryWatch watch;
    Answers answers;
    return watch.ok(setPath(*this, path, values, flags, Pass::fit));
}
