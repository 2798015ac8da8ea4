// confstore.h - private to libmconf: the building blocks of the store that
// the text reader and the tests use beside the public calls of mconf.h.
#ifndef VX_CONF_CONFSTORE_H
#define VX_CONF_CONFSTORE_H

#include "mconf.h"

// The group of that name under root, made and appended if missing. A null
// root makes a lone group linked to nothing (how mCONF_New makes the root).
// Null for a null name or when memory runs out.
tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name);

// Adds an item to group, or, outside "COMMAND", replaces the value of the
// item with that key (keeping its place and comment; comment is dropped).
// The item, or null for a null group/key/value or when memory runs out.
tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment);

// The reader's way in, for a group of a store: appends an item to the
// group's pending items, unlinked and unchecked; confSettle then adds them
// in order as mCONF_AddItem would. Adding them in one go, while the group's
// table alone is busy, costs a large group much less than item by item.
tConfItem* confAppendItem(tConfGroup* group, const char* key, const char* value, const char* comment);
void confSettle(tConfGroup* group);

#endif // VX_CONF_CONFSTORE_H
