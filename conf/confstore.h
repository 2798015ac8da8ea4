// confstore.h - private to libmconf: the building blocks of the store that
// the text reader and the tests use beside the public calls of mconf.h.
#ifndef VX_CONF_CONFSTORE_H
#define VX_CONF_CONFSTORE_H

#include "mconf.h"

#include <cstddef>
#include <cstdint>

// The group of that name under root, made and appended if missing. A null
// root makes a lone group linked to nothing (how mCONF_New makes the root).
// Null for a null name or when memory runs out.
tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name);

// Adds an item to group, or, outside "COMMAND", replaces the value of the
// item with that key (keeping its place and comment; comment is dropped).
// The item, or null for a null group/key/value or when memory runs out.
tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment);

// The same two with lengths already known, for the reader: each text is
// NUL-terminated at its length; a null comment is none. keyHash, if not
// null, is what confPrefetchItem gave for this key and group.
tConfGroup* confAddGroupN(tConfGroup* root, const char* name, size_t nameLen);
tConfItem* confAddItemN(tConfGroup* group, const char* key, size_t keyLen, const char* value, size_t valueLen,
                        const char* comment, size_t commentLen, const uint32_t* keyHash = nullptr);

// A hint that an item of that key is about to be added to group: starts
// fetching its place in the group's key table. Changes nothing. True, with
// the key's hash in *keyHash, if the group has a table.
bool confPrefetchItem(tConfGroup* group, const char* key, size_t keyLen, uint32_t* keyHash);

#endif // VX_CONF_CONFSTORE_H
