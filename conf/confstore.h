// confstore.h - private to libmconf: the building blocks of the store that
// the text reader and the tests use beside the public calls of mconf.h.
#ifndef VX_CONF_CONFSTORE_H
#define VX_CONF_CONFSTORE_H

#include "mconf.h"

#include <stddef.h>

// The group of that name under root, made and appended if missing; a null
// root makes a lone group. Null for a null name or when memory runs out.
tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name);

// Adds an item to group or, outside "COMMAND", replaces the value of the item
// of that key (which keeps its place and comment). The item, or null for a
// null group/key/value or when memory runs out.
tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment);

// The reader's way in: queues an item (its key of keyLen bytes) on a group that is there; confSettle adds
// the queued items in order as mCONF_AddItem would, which costs a large group less.
void confAppendItem(tConfGroup* group, const char* key, size_t keyLen, const char* value, const char* comment);
void confSettle(tConfGroup* group);

#endif // VX_CONF_CONFSTORE_H
