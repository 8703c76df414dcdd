#ifndef XPATH_OBJECT_H
#define XPATH_OBJECT_H

// The empty common base of the store's classes.
class Object {};

#endif
