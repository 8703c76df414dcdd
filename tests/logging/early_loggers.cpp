// Linked ahead of the other test files and the library, so that these statics come up before
// the root; both loggers are in the list when it comes up, and still after it is gone.
#include "trace.h"

// Class loggers the way a source file of the store has them: the child names a parent that
// comes up after it.
extern Logger earlyParent;
Logger earlyChild("early.child", &earlyParent);
Logger earlyParent("early.parent", nullptr);
