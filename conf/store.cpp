// mCONF: the data model and its accessors.
//
// The lists of mconf.h are the store. So that a lookup or a set costs O(1)
// however large a store grows, each group's opaque `index` points at its
// tConfIndex: tail of the item list, item count and, past kLinearMax items,
// a hash table key -> first item. The groups of a store share a StoreIndex:
// tail of the group list, a hash table name -> first group, and the arena
// that holds each item as one block [tConfItem | key | value | comment] and
// each group as [tConfGroup | tConfIndex | name]; a replaced value gets a
// block of its own. A lone group (no root) is the first of a store of its own.
#include "confstore.h"
#include "mlog.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

// Open addressing with linear probing, at most half full. A slot is one
// word, the key's 32-bit hash and the number of its entry (0: empty), so
// that probing reads the slots alone; nodes[] holds the entries, with room
// for half the slots. byName: the entries are groups (else items).
struct Table {
    uint64_t* slots;
    size_t mask, used; // slot count - 1; entries
    void** nodes;
    bool byName;
};

struct Chunk {
    Chunk* next;
    size_t size, used; // bytes, this head included
};

} // namespace

struct StoreIndex {
    tConfGroup* root; // the first group
    tConfGroup* last; // tail of the group list
    Table groups;     // name -> first group of that name
    Chunk* chunks;    // the arena, newest chunk first
    size_t nextChunk; // the size of the next chunk
    size_t replaced;  // values that have a block of their own
};

// The private part of a group, behind the opaque pointer of mconf.h.
struct tConfIndex {
    tConfItem* last;                  // tail of the item list
    size_t count;                     // items
    Table items;                      // key -> first item, once the group passes kLinearMax
    StoreIndex* store;                // the store the group belongs to
    bool command;                     // the group is "COMMAND"
    tConfItem *pending, *pendingTail; // appended by the reader, not yet added
};

namespace {

int g_debugLevel = 0;

const char kCommandGroup[] = "COMMAND";
const size_t kLinearMax = 16; // groups up to this size are scanned
const size_t kMinSlots = 64;  // the smallest table
#ifndef __has_feature
#define __has_feature(x) 0 // GCC tells of AddressSanitizer by __SANITIZE_ADDRESS__
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
const size_t kFirstChunk = 0, kLastChunk = 0; // a chunk per node, so that AddressSanitizer sees its bounds
#else
const size_t kFirstChunk = 4096, kLastChunk = 1024 * 1024; // arena chunks grow by 4
#endif

// FNV-1a, its 64 bits folded to 32.
uint32_t hashText(const char* s, size_t n)
{
    uint64_t h = 0xcbf29ce484222325ull;
    while (n-- > 0)
        h = (h ^ static_cast<unsigned char>(*s++)) * 0x100000001b3ull;
    return static_cast<uint32_t>(h ^ (h >> 32));
}

// text (NUL-terminated) equals the n bytes at key, which hold no NUL.
bool sameText(const char* text, const char* key, size_t n) { return strncmp(text, key, n) == 0 && text[n] == '\0'; }

// Puts a slot word into the first free slot from its hash on.
void place(uint64_t* slots, size_t mask, uint64_t word)
{
    size_t i = (word >> 32) & mask;
    while (slots[i] != 0)
        i = (i + 1) & mask;
    slots[i] = word;
}

// Makes room for one more entry, doubling the slots. False, the table still
// whole, if memory runs out (or the entries would pass 32 bits).
bool tableRoom(Table& t, size_t more = 1)
{
    const size_t count = t.slots != nullptr ? t.mask + 1 : 0;
    if (t.used + more <= count / 2)
        return true;
    size_t grown = count != 0 ? 2 * count : kMinSlots;
    while (grown / 2 < t.used + more && grown <= SIZE_MAX / 32)
        grown *= 2;
    if (t.used + more >= UINT32_MAX || grown > SIZE_MAX / 16)
        return false;
    void** nodes = static_cast<void**>(realloc(t.nodes, grown / 2 * sizeof(void*)));
    if (nodes == nullptr)
        return false;
    t.nodes = nodes; // more room than the slots need does no harm
    uint64_t* slots = static_cast<uint64_t*>(calloc(grown, sizeof(uint64_t)));
    if (slots == nullptr)
        return false;
    for (size_t i = 0; i < count; ++i)
        if (t.slots[i] != 0)
            place(slots, grown - 1, t.slots[i]);
    free(t.slots);
    t.slots = slots;
    t.mask = grown - 1;
    return true;
}

// Adds a node whose key is not in the table yet; room was reserved.
void tableInsert(Table& t, uint32_t hash, void* node)
{
    t.nodes[t.used++] = node;
    place(t.slots, t.mask, static_cast<uint64_t>(hash) << 32 | t.used);
}

void* tableFind(const Table& t, const char* key, size_t len, uint32_t hash)
{
    for (size_t i = hash & t.mask; t.slots != nullptr && t.slots[i] != 0; i = (i + 1) & t.mask) {
        if (static_cast<uint32_t>(t.slots[i] >> 32) != hash)
            continue;
        void* node = t.nodes[static_cast<uint32_t>(t.slots[i]) - 1];
        if (sameText(t.byName ? static_cast<tConfGroup*>(node)->name : static_cast<tConfItem*>(node)->key, key, len))
            return node;
    }
    return nullptr;
}

// A node block: bump-allocated, 8-byte aligned, from the store's arena; a
// block too large for the next chunk gets one of its own size.
void* allocNode(StoreIndex* st, size_t n)
{
    n = (n + 7) & ~static_cast<size_t>(7);
    Chunk* c = st->chunks;
    if (c == nullptr || c->size - c->used < n) {
        const size_t size = n + sizeof(Chunk) > st->nextChunk ? n + sizeof(Chunk) : st->nextChunk;
        if (n > SIZE_MAX / 2 || (c = static_cast<Chunk*>(malloc(size))) == nullptr)
            return nullptr;
        *c = Chunk{st->chunks, size, sizeof(Chunk)};
        st->chunks = c;
        st->nextChunk = st->nextChunk < kLastChunk ? st->nextChunk * 4 : kLastChunk;
    }
    c->used += n;
    return reinterpret_cast<char*>(c) + c->used - n;
}

char* copyText(char* at, const char* text, size_t len)
{
    memcpy(at, text, len);
    at[len] = '\0';
    return at;
}

// The value text inside the item's own block.
const char* inlineValue(const tConfItem* item) { return item->key + strlen(item->key) + 1; }

tConfGroup* newGroup(StoreIndex* st, const char* name, size_t nameLen)
{
    tConfGroup* group = static_cast<tConfGroup*>(allocNode(st, sizeof(tConfGroup) + sizeof(tConfIndex) + nameLen + 1));
    if (group == nullptr)
        return nullptr;
    tConfIndex* ix = reinterpret_cast<tConfIndex*>(group + 1);
    *group = tConfGroup{nullptr, nullptr, copyText(reinterpret_cast<char*>(ix + 1), name, nameLen), ix};
    *ix = tConfIndex{nullptr, 0, Table{}, st, strcmp(group->name, kCommandGroup) == 0, nullptr, nullptr};
    return group;
}

// Appends a group to a store, and to its table if first of its name.
tConfGroup* appendGroup(StoreIndex* st, const char* name, size_t len, uint32_t hash, bool first)
{
    tConfGroup* group = tableRoom(st->groups) ? newGroup(st, name, len) : nullptr;
    if (group == nullptr)
        return nullptr;
    (st->last != nullptr ? st->last->next : st->root) = group;
    st->last = group;
    if (first)
        tableInsert(st->groups, hash, group);
    return group;
}

void freeStore(StoreIndex* st)
{
    // The nodes go with the arena: only replaced values have blocks of their own.
    for (tConfGroup* g = st->root; g != nullptr; g = g->next) {
        for (tConfItem* it = st->replaced != 0 ? g->items : nullptr; it != nullptr; it = it->next)
            if (it->value != inlineValue(it))
                free(it->value);
        free(g->index->items.slots);
        free(g->index->items.nodes);
    }
    free(st->groups.slots);
    free(st->groups.nodes);
    for (Chunk *c = st->chunks, *next; c != nullptr; c = next) {
        next = c->next;
        free(c);
    }
    free(st);
}

// A new store whose first group has that name.
tConfGroup* newStore(const char* name, size_t len)
{
    StoreIndex* st = static_cast<StoreIndex*>(calloc(1, sizeof(StoreIndex)));
    if (st == nullptr)
        return nullptr;
    st->groups.byName = true;
    st->nextChunk = kFirstChunk;
    if (appendGroup(st, name, len, hashText(name, len), true) != nullptr)
        return st->root;
    freeStore(st);
    return nullptr;
}

// An item of these texts (a null comment is none); the key has keyLen bytes.
tConfItem* newItem(StoreIndex* st, const char* key, size_t keyLen, const char* value, const char* comment)
{
    const size_t valueLen = strlen(value), commentLen = comment != nullptr ? strlen(comment) : 0;
    if (keyLen > SIZE_MAX / 4 || valueLen > SIZE_MAX / 4 || commentLen > SIZE_MAX / 4)
        return nullptr;
    const size_t commentBytes = comment != nullptr ? commentLen + 1 : 0;
    tConfItem* item = static_cast<tConfItem*>(allocNode(st, sizeof(tConfItem) + keyLen + valueLen + 2 + commentBytes));
    if (item == nullptr)
        return nullptr;
    char* text = reinterpret_cast<char*>(item + 1);
    *item = tConfItem{nullptr, copyText(text, key, keyLen), copyText(text + keyLen + 1, value, valueLen),
                      comment != nullptr ? copyText(text + keyLen + valueLen + 2, comment, commentLen) : nullptr};
    return item;
}

// The first item of that key; hash is the key's.
tConfItem* findItem(const tConfGroup* group, const char* key, size_t len, uint32_t hash)
{
    if (group->index->items.slots != nullptr)
        return static_cast<tConfItem*>(tableFind(group->index->items, key, len, hash));
    tConfItem* item = group->items;
    while (item != nullptr && !sameText(item->key, key, len))
        item = item->next;
    return item;
}

// Adds an item as mCONF_AddItem defines it. made: the reader's item of these
// texts, linked (or left unused in the arena if the key is there); else one is made.
tConfItem* addItem(tConfGroup* group, const char* key, size_t keyLen, const char* value, const char* comment,
                   tConfItem* made)
{
    tConfIndex* ix = group->index;
    Table& t = ix->items;
    const bool hashed = t.slots != nullptr, needTable = hashed || ix->count >= kLinearMax;
    const uint32_t hash = needTable ? hashText(key, keyLen) : 0; // a scanned group needs none
    tConfItem* old = findItem(group, key, keyLen, hash);
    if (old != nullptr && !ix->command) {
        // A new value gets a block of its own; the comment and the place stay.
        char* fresh = strdup(value);
        if (fresh == nullptr)
            return nullptr;
        if (old->value != inlineValue(old))
            free(old->value);
        old->value = fresh;
        ++ix->store->replaced;
        return old;
    }
    // Room in the table first, so that a failure leaves the store as it was.
    if (needTable && !tableRoom(t))
        return nullptr;
    for (tConfItem* it = !hashed && t.slots != nullptr ? group->items : nullptr; it != nullptr; it = it->next) {
        const size_t len = strlen(it->key); // the group outgrows the scan: index what it has
        const uint32_t h = hashText(it->key, len);
        if (tableFind(t, it->key, len, h) == nullptr)
            tableInsert(t, h, it);
    }
    tConfItem* item = made != nullptr ? made : newItem(ix->store, key, keyLen, value, comment);
    if (item == nullptr)
        return nullptr;
    item->next = nullptr;
    (ix->last != nullptr ? ix->last->next : group->items) = item;
    ix->last = item;
    ++ix->count;
    // The table maps a key to its first item: a repeated "COMMAND" key is in already.
    if (t.slots != nullptr && old == nullptr)
        tableInsert(t, hash, item);
    return item;
}

} // namespace

tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment)
{
    if (group == nullptr || key == nullptr || value == nullptr)
        return nullptr;
    return addItem(group, key, strlen(key), value, comment, nullptr);
}

void confAppendItem(tConfGroup* group, const char* key, size_t keyLen, const char* value, const char* comment)
{
    tConfIndex* ix = group->index;
    tConfItem* item = newItem(ix->store, key, keyLen, value, comment);
    if (item != nullptr)
        ix->pendingTail = (ix->pending != nullptr ? ix->pendingTail->next : ix->pending) = item;
}

void confSettle(tConfGroup* group)
{
    tConfIndex* ix = group != nullptr ? group->index : nullptr;
    size_t n = 0;
    for (tConfItem* it = ix != nullptr ? ix->pending : nullptr; it != nullptr; it = it->next)
        ++n;
    // An empty or indexed group takes the table's room for all at once (one growth, not one per
    // doubling); should that fail, the adds below grow it or fail one by one.
    if (n > kLinearMax && (ix->count == 0 || ix->items.slots != nullptr))
        tableRoom(ix->items, n);
    for (tConfItem *it = ix != nullptr ? ix->pending : nullptr, *next; it != nullptr; it = next) {
        next = it->next;
        addItem(group, it->key, strlen(it->key), it->value, it->comment, it);
    }
    if (ix != nullptr)
        ix->pending = nullptr;
}

tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name)
{
    if (name == nullptr || root == nullptr)
        return name != nullptr ? newStore(name, strlen(name)) : nullptr;
    StoreIndex* st = root->index->store;
    const size_t len = strlen(name);
    const uint32_t h = hashText(name, len);
    tConfGroup* first = static_cast<tConfGroup*>(tableFind(st->groups, name, len, h));
    // From a later group the lookup walks on from there.
    tConfGroup* found = root == st->root ? first : mCONF_GetGroup(root, name);
    return found != nullptr ? found : appendGroup(st, name, len, h, first == nullptr);
}

tConfGroup* mCONF_New(void) { return newStore("", 0); }

int mCONF_Free(tConfGroup* root)
{
    // A later group of a store is freed with the store, through its first.
    if (root != nullptr && root->index->store->root == root)
        freeStore(root->index->store);
    return 0;
}

tConfGroup* mCONF_GetGroup(tConfGroup* root, const char* name)
{
    name = name != nullptr ? name : "";
    if (root != nullptr && root->index->store->root == root) {
        const size_t len = strlen(name);
        return static_cast<tConfGroup*>(tableFind(root->index->store->groups, name, len, hashText(name, len)));
    }
    tConfGroup* g = root; // a later group: walk the list from there
    while (g != nullptr && strcmp(g->name, name) != 0)
        g = g->next;
    return g;
}

tConfItem* mCONF_GetItem(tConfGroup* group, const char* key)
{
    const size_t len = key != nullptr ? strlen(key) : 0;
    return group != nullptr && key != nullptr ? findItem(group, key, len, hashText(key, len)) : nullptr;
}

char* mCONF_GetValue(tConfGroup* root, const char* groupName, const char* key)
{
    tConfItem* item = mCONF_GetItem(mCONF_GetGroup(root, groupName), key);
    return item != nullptr ? item->value : nullptr;
}

tConfItem* mCONF_SetValue(tConfGroup* root, const char* groupName, const char* key, const char* value,
                          const char* comment)
{
    if (root == nullptr) // a group made without a store would be linked to nothing, and lost
        return nullptr;
    tConfGroup* group = mCONF_GetGroup(root, groupName);
    return mCONF_AddItem(group != nullptr ? group : mCONF_AddGroup(root, groupName), key, value, comment);
}

tConfItem* mCONF_SetValueInt(tConfGroup* root, const char* groupName, const char* key, int value, const char* comment)
{
    char text[16];
    snprintf(text, sizeof text, "%d", value);
    return mCONF_SetValue(root, groupName, key, text, comment);
}

int printAllItemOfGroup(tConfGroup* root, const char* groupName)
{
    tConfGroup* group = mCONF_GetGroup(root, groupName);
    if (group == nullptr)
        return 0;
    // The name as the caller gave it; a null one as the C library prints it.
    printf("group:%s\n", groupName != nullptr ? groupName : "(null)");
    for (tConfItem* item = group->items; item != nullptr; item = item->next)
        printf("\t %s=%s\n", item->key, item->value);
    return 1;
}

void mCONF_SetDebugLevel(int level) { g_debugLevel = level; }

int mCONF_GetIntValue(tConfGroup* root, const char* groupName, const char* key, int defaultValue)
{
    const char* value = mCONF_GetValue(root, groupName, key);
    const char* section = groupName != nullptr ? groupName : "(null)";
    const char* name = key != nullptr ? key : "(null)";
    logPrt("mCONF_GetIntValue, Section:%s, Name:%s, defaultValue:%d, ptr%s%s.", section, name, defaultValue,
           value != nullptr ? ":" : " is NULL", value != nullptr ? value : "");
    return value != nullptr ? static_cast<int>(strtol(value, nullptr, 10)) : defaultValue;
}

int mCONF_GetHexaValue(tConfGroup* root, const char* groupName, const char* key, int defaultValue)
{
    const char* value = mCONF_GetValue(root, groupName, key);
    if (value == nullptr || strlen(value) < 3 || value[0] != '0' || (value[1] != 'x' && value[1] != 'X'))
        return defaultValue;
    uint32_t result = 0; // digits up to the first other byte; the high ones drop out
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(value) + 2; isxdigit(*p); ++p)
        result = result << 4 | static_cast<uint32_t>(*p <= '9' ? *p - '0' : (*p | 0x20) - 'a' + 10);
    return static_cast<int>(result);
}

char* mCONF_GetStrValue(tConfGroup* root, const char* groupName, const char* key, char* dst, const char* defaultValue)
{
    // dst is sized by the caller, who knows the value; the library has no length to check.
    const char* value = dst != nullptr ? mCONF_GetValue(root, groupName, key) : nullptr;
    if (value == nullptr && dst != nullptr)
        value = defaultValue;
    return value != nullptr ? strcpy(dst, value) : nullptr;
}
