#include <cstring>

#include "trace.h"

// Class loggers the way a source file of the store has them: the child names a parent that
// comes up after it, and both come up before the root.
extern Logger earlyParent;
Logger earlyChild("early.child", &earlyParent);
Logger earlyParent("early.parent", nullptr);

// Until the root is constructed its storage is zeroed, its vtable pointer included.
static const void* const noVtable = nullptr;
extern const bool rootUnbuiltAtStart =
    std::memcmp(static_cast<const void*>(Logger::getRootLogger()), &noVtable, sizeof noVtable) == 0;
