#ifndef XPATH_STORE_LOCKING_H
#define XPATH_STORE_LOCKING_H

// One writer at a time. A run that sets a value holds an exclusive advisory lock (flock) from
// before it reads the file until its new text is in place: on the file itself, or on its
// directory while there is no file yet. The save replaces the file, so the lock is checked to
// be on what the name still leads to, and taken again if not. Readers never need it.
// Internal: not installed.

#include <string>

#include "files.h"

namespace xpath_store {

class WriterLock {
  public:
    // Waits up to 30 s for the writer before; false if it held on all that time. Where nothing
    // can be locked (no directory, not a regular file) there is none to wait for: true.
    bool take(const std::string& file);

  private:
    Descriptor fd;  // the lock lasts as long as it is open
};

}  // namespace xpath_store

#endif
