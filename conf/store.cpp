// mCONF: the data model and its accessors.
//
// The lists of mconf.h are the store. So that a lookup or a set costs O(1)
// however large a store grows, each group's opaque `index` points at its
// tConfIndex: tail of the item list, item count and, past kLinearMax items,
// a hash table key -> first item. The root's leads on to the StoreIndex:
// tail of the group list, a hash table name -> group, and the arena.
//
// Memory: an item is one block [tConfItem | key | value | comment], a group
// one block [tConfGroup | tConfIndex | name], from the store's arena of
// growing chunks that are freed all at once (a lone group, made with no
// root, uses malloc). A replaced value gets a block of its own. Under
// AddressSanitizer each node is a chunk of its own, so its bounds are seen.
#include "confstore.h"
#include "mlog.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifndef __has_feature
#define __has_feature(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define VX_CONF_BLOCK_PER_NODE 1
#else
#define VX_CONF_BLOCK_PER_NODE 0
#endif

namespace {

int g_debugLevel = 0;

const char kCommandGroup[] = "COMMAND";
const size_t kLinearMax = 16;                              // groups up to this size are scanned
const size_t kMinSlots = 64;                               // the smallest table
const size_t kFirstChunk = 4096, kLastChunk = 1024 * 1024; // arena chunks grow by 4

// Open addressing with linear probing, at most half full. A slot is one
// word, the key's 32-bit hash and the number of its entry (0: empty), so
// that probing reads the slots alone; nodes[] holds the entries. byName:
// the entries are groups (else items).
struct Table {
    uint64_t* slots;
    size_t mask, used, cap; // slot count - 1; entries; room in nodes[]
    void** nodes;
    bool byName;
};

struct Chunk {
    Chunk* next;
    size_t size, used;
}; // size and used: bytes, this head included

// FNV-1a, its 64 bits folded to 32.
uint32_t hashText(const char* s, size_t n)
{
    uint64_t h = 0xcbf29ce484222325ull;
    while (n-- > 0)
        h = (h ^ static_cast<unsigned char>(*s++)) * 0x100000001b3ull;
    return static_cast<uint32_t>(h ^ (h >> 32));
}

// text (NUL-terminated) equals the n bytes at key, which hold no NUL.
inline bool sameText(const char* text, const char* key, size_t n)
{
    return strncmp(text, key, n) == 0 && text[n] == '\0';
}

// Makes room for `needed` entries. False, the table as it was, if memory
// runs out (or the entries would pass 32 bits).
bool tableReserve(Table& t, size_t needed)
{
    const size_t count = t.slots != nullptr ? t.mask + 1 : 0;
    if (needed >= UINT32_MAX)
        return false;
    if (needed > t.cap) {
        size_t cap = t.cap != 0 ? t.cap : kMinSlots / 2;
        while (cap < needed)
            cap *= 2;
        void** nodes = static_cast<void**>(realloc(t.nodes, cap * sizeof(void*)));
        if (nodes == nullptr)
            return false;
        t.nodes = nodes;
        t.cap = cap;
    }
    if (needed <= count / 2)
        return true;
    size_t grown = count != 0 ? count : kMinSlots;
    while (needed > grown / 2)
        grown *= 2;
    uint64_t* slots = static_cast<uint64_t*>(calloc(grown, sizeof(uint64_t)));
    if (slots == nullptr)
        return false;
    for (size_t i = 0; i < count; ++i) {
        if (t.slots[i] == 0)
            continue;
        size_t j = (t.slots[i] >> 32) & (grown - 1);
        while (slots[j] != 0)
            j = (j + 1) & (grown - 1);
        slots[j] = t.slots[i];
    }
    free(t.slots);
    t.slots = slots;
    t.mask = grown - 1;
    return true;
}

void tableFree(Table& t)
{
    free(t.slots);
    free(t.nodes);
}

// Adds a node whose key is not in the table yet; room was reserved.
void tableInsert(Table& t, uint32_t hash, void* node)
{
    t.nodes[t.used++] = node;
    size_t i = hash & t.mask;
    while (t.slots[i] != 0)
        i = (i + 1) & t.mask;
    t.slots[i] = static_cast<uint64_t>(hash) << 32 | t.used;
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

} // namespace

struct StoreIndex;

// The private part of a group, behind the opaque pointer of mconf.h.
struct tConfIndex {
    tConfItem* last;                  // tail of the item list
    size_t count;                     // items
    Table items;                      // key -> first item, once the group passes kLinearMax
    StoreIndex* store;                // null for a lone group
    bool command;                     // the group is "COMMAND"
    tConfItem *pending, *pendingTail; // appended by the reader, not yet added
};

struct StoreIndex {
    tConfGroup* root;
    tConfGroup* last; // tail of the group list
    Table groups;     // name -> group, every group but the root
    Chunk* chunks;    // the arena, newest chunk first
    size_t nextChunk; // the size of the next chunk
    size_t replaced;  // values that have a block of their own
};

namespace {

StoreIndex* storeOfRoot(tConfGroup* root)
{
    StoreIndex* st = root != nullptr && root->index != nullptr ? root->index->store : nullptr;
    return st != nullptr && st->root == root ? st : nullptr;
}

// A node block: bump-allocated, 8-byte aligned, from the store's arena; a
// block too large for a chunk gets one of its own size. From the heap for a
// lone group.
void* allocNode(StoreIndex* st, size_t n)
{
    n = (n + 7) & ~static_cast<size_t>(7);
    if (st == nullptr || n == 0 || n > SIZE_MAX / 2)
        return st == nullptr ? malloc(n) : nullptr;
    Chunk* c = st->chunks;
    if (VX_CONF_BLOCK_PER_NODE || c == nullptr || c->size - c->used < n) {
        const size_t size =
            VX_CONF_BLOCK_PER_NODE || n + sizeof(Chunk) > st->nextChunk ? n + sizeof(Chunk) : st->nextChunk;
        if ((c = static_cast<Chunk*>(malloc(size))) == nullptr)
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
inline const char* inlineValue(const tConfItem* item) { return item->key + strlen(item->key) + 1; }

// An item of texts of the given lengths (a null comment is none).
tConfItem* newItem(StoreIndex* st, const char* key, size_t keyLen, const char* value, size_t valueLen,
                   const char* comment, size_t commentLen)
{
    if (keyLen > SIZE_MAX / 4 || valueLen > SIZE_MAX / 4 || commentLen > SIZE_MAX / 4)
        return nullptr;
    const size_t commentBytes = comment != nullptr ? commentLen + 1 : 0;
    tConfItem* item = static_cast<tConfItem*>(allocNode(st, sizeof(tConfItem) + keyLen + valueLen + 2 + commentBytes));
    if (item == nullptr)
        return nullptr;
    char* text = reinterpret_cast<char*>(item + 1);
    item->next = nullptr;
    item->key = copyText(text, key, keyLen);
    item->value = copyText(text + keyLen + 1, value, valueLen);
    item->comment = comment != nullptr ? copyText(text + keyLen + valueLen + 2, comment, commentLen) : nullptr;
    return item;
}

tConfGroup* newGroup(const char* name, size_t nameLen, StoreIndex* st)
{
    if (nameLen > SIZE_MAX / 2)
        return nullptr;
    tConfGroup* group = static_cast<tConfGroup*>(allocNode(st, sizeof(tConfGroup) + sizeof(tConfIndex) + nameLen + 1));
    if (group == nullptr)
        return nullptr;
    tConfIndex* ix = reinterpret_cast<tConfIndex*>(group + 1);
    memset(ix, 0, sizeof *ix);
    *group = tConfGroup{nullptr, nullptr, copyText(reinterpret_cast<char*>(ix + 1), name, nameLen), ix};
    ix->store = st;
    ix->command = strcmp(group->name, kCommandGroup) == 0;
    return group;
}

// Replaces the value of an item; the comment and the place stay.
tConfItem* replaceValue(tConfItem* item, const char* value, StoreIndex* st)
{
    char* fresh = static_cast<char*>(malloc(strlen(value) + 1));
    if (fresh == nullptr)
        return nullptr;
    strcpy(fresh, value);
    if (item->value != inlineValue(item))
        free(item->value);
    item->value = fresh;
    if (st != nullptr)
        ++st->replaced;
    return item;
}

tConfItem* findLinear(tConfItem* item, const char* key, size_t len)
{
    while (item != nullptr && !sameText(item->key, key, len))
        item = item->next;
    return item;
}

// Appends a group to a store, through its tail and (unless a group of that
// name is there already) its table.
tConfGroup* appendGroup(StoreIndex* st, const char* name, size_t nameLen, uint32_t hash, bool inTable)
{
    if (!tableReserve(st->groups, st->groups.used + 1))
        return nullptr;
    tConfGroup* group = newGroup(name, nameLen, st);
    if (group == nullptr)
        return nullptr;
    st->last = st->last->next = group;
    if (!inTable)
        tableInsert(st->groups, hash, group);
    return group;
}

// Adds to an indexed group as mCONF_AddItem defines it. made: an item that
// the reader made of these texts, which is linked (or left unused in the
// arena when its key is there already); else one is made as needed.
tConfItem* addIndexed(tConfGroup* group, const char* key, size_t keyLen, const char* value, const char* comment,
                      tConfItem* made)
{
    tConfIndex* ix = group->index;
    const bool hashed = ix->items.slots != nullptr, needTable = hashed || ix->count + 1 > kLinearMax;
    const uint32_t h = needTable ? hashText(key, keyLen) : 0;
    tConfItem* old =
        hashed ? static_cast<tConfItem*>(tableFind(ix->items, key, keyLen, h)) : findLinear(group->items, key, keyLen);
    if (old != nullptr && !ix->command)
        return replaceValue(old, value, ix->store);

    // Room in the table first, so that a failure leaves the store as it was.
    if (needTable && !tableReserve(ix->items, ix->count + 1))
        return nullptr;
    for (tConfItem* it = needTable && !hashed ? group->items : nullptr; it != nullptr; it = it->next) {
        const size_t len = strlen(it->key); // the group outgrows the scan: index what it has
        const uint32_t ih = hashText(it->key, len);
        if (tableFind(ix->items, it->key, len, ih) == nullptr)
            tableInsert(ix->items, ih, it);
    }
    tConfItem* item = made != nullptr ? made
                                      : newItem(ix->store, key, keyLen, value, strlen(value), comment,
                                                comment != nullptr ? strlen(comment) : 0);
    if (item == nullptr)
        return nullptr;
    item->next = nullptr;
    (ix->last != nullptr ? ix->last->next : group->items) = item;
    ix->last = item;
    ++ix->count;
    // The table maps a key to its first item: a repeated key in "COMMAND"
    // is there already.
    if (needTable && old == nullptr)
        tableInsert(ix->items, h, item);
    return item;
}

} // namespace

tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment)
{
    if (group == nullptr || key == nullptr || value == nullptr)
        return nullptr;
    if (group->index != nullptr)
        return addIndexed(group, key, strlen(key), value, comment, nullptr);
    tConfItem** link = &group->items; // a group not made here: the list alone
    const bool command = group->name != nullptr && strcmp(group->name, kCommandGroup) == 0;
    for (; *link != nullptr; link = &(*link)->next)
        if (!command && strcmp((*link)->key, key) == 0)
            return replaceValue(*link, value, nullptr);
    return *link = newItem(nullptr, key, strlen(key), value, strlen(value), comment, comment ? strlen(comment) : 0);
}

tConfItem* confAppendItem(tConfGroup* group, const char* key, size_t keyLen, const char* value, size_t valueLen,
                          const char* comment, size_t commentLen)
{
    tConfIndex* ix = group != nullptr ? group->index : nullptr;
    if (ix == nullptr || ix->store == nullptr)
        return mCONF_AddItem(group, key, value, comment);
    tConfItem* item = newItem(ix->store, key, keyLen, value, valueLen, comment, commentLen);
    if (item == nullptr)
        return nullptr;
    (ix->pending != nullptr ? ix->pendingTail->next : ix->pending) = item;
    return ix->pendingTail = item;
}

void confSettle(tConfGroup* group)
{
    tConfIndex* ix = group != nullptr ? group->index : nullptr;
    tConfItem* it = ix != nullptr ? ix->pending : nullptr;
    if (ix != nullptr)
        ix->pending = nullptr;
    for (tConfItem* next; it != nullptr; it = next) {
        next = it->next;
        addIndexed(group, it->key, static_cast<size_t>(it->value - it->key - 1), it->value, it->comment, it);
    }
}

tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name)
{
    if (name == nullptr)
        return nullptr;
    const size_t len = strlen(name);
    if (root == nullptr)
        return newGroup(name, len, nullptr);
    StoreIndex* st = storeOfRoot(root);
    const uint32_t h = hashText(name, len);
    if (st != nullptr) { // the root is the store's only group without a name
        tConfGroup* found = len == 0 ? root : static_cast<tConfGroup*>(tableFind(st->groups, name, len, h));
        return found != nullptr ? found : appendGroup(st, name, len, h, false);
    }
    tConfGroup* last = root; // any other group: walk the list from there
    for (tConfGroup* g = root; g != nullptr; last = g, g = g->next)
        if (g->name != nullptr && strcmp(g->name, name) == 0)
            return g;
    st = root->index != nullptr ? root->index->store : nullptr;
    if (st == nullptr)
        return last->next = newGroup(name, len, nullptr);
    return appendGroup(st, name, len, h, tableFind(st->groups, name, len, h) != nullptr);
}

tConfGroup* mCONF_New(void)
{
    StoreIndex* st = static_cast<StoreIndex*>(calloc(1, sizeof(StoreIndex)));
    if (st == nullptr)
        return nullptr;
    st->groups.byName = true;
    st->nextChunk = kFirstChunk;
    tConfGroup* root = st->root = st->last = newGroup("", 0, st);
    if (root == nullptr)
        free(st);
    return root;
}

int mCONF_Free(tConfGroup* root)
{
    StoreIndex* st = storeOfRoot(root);
    if (root == nullptr || (st == nullptr && root->index != nullptr && root->index->store != nullptr))
        return 0; // nothing, or a later group of a store, whose blocks are the store's
    for (tConfGroup* g = root; g != nullptr;) {
        tConfGroup* next = g->next;
        // The blocks of a store go with its arena: only values replaced
        // since have blocks of their own, besides the nodes of lone groups.
        for (tConfItem *it = st == nullptr || st->replaced != 0 ? g->items : nullptr, *nextItem; it != nullptr;
             it = nextItem) {
            nextItem = it->next;
            if (it->value != inlineValue(it))
                free(it->value);
            if (st == nullptr)
                free(it);
        }
        if (g->index != nullptr)
            tableFree(g->index->items);
        if (st == nullptr)
            free(g);
        g = next;
    }
    if (st == nullptr)
        return 0;
    tableFree(st->groups);
    for (Chunk *c = st->chunks, *next; c != nullptr; c = next) {
        next = c->next;
        free(c);
    }
    free(st);
    return 0;
}

tConfGroup* mCONF_GetGroup(tConfGroup* root, const char* name)
{
    const bool anyEmpty = name == nullptr || name[0] == '\0';
    if (StoreIndex* st = storeOfRoot(root)) {
        const size_t len = anyEmpty ? 0 : strlen(name);
        return anyEmpty ? root : static_cast<tConfGroup*>(tableFind(st->groups, name, len, hashText(name, len)));
    }
    for (tConfGroup* g = root; g != nullptr; g = g->next) {
        const bool emptyName = g->name == nullptr || g->name[0] == '\0';
        if (anyEmpty ? emptyName : g->name != nullptr && strcmp(g->name, name) == 0)
            return g;
    }
    return nullptr;
}

tConfItem* mCONF_GetItem(tConfGroup* group, const char* key)
{
    if (group == nullptr || key == nullptr)
        return nullptr;
    const size_t len = strlen(key);
    const tConfIndex* ix = group->index;
    if (ix != nullptr && ix->items.slots != nullptr)
        return static_cast<tConfItem*>(tableFind(ix->items, key, len, hashText(key, len)));
    return findLinear(group->items, key, len);
}

char* mCONF_GetValue(tConfGroup* root, const char* groupName, const char* key)
{
    tConfItem* item = mCONF_GetItem(mCONF_GetGroup(root, groupName), key);
    return item != nullptr ? item->value : nullptr;
}

tConfItem* mCONF_SetValue(tConfGroup* root, const char* groupName, const char* key, const char* value,
                          const char* comment)
{
    // Without a store the group would be made linked to nothing, and lost.
    tConfGroup* group = root != nullptr ? mCONF_GetGroup(root, groupName) : nullptr;
    if (root == nullptr || (group == nullptr && (group = mCONF_AddGroup(root, groupName)) == nullptr))
        return nullptr;
    return mCONF_AddItem(group, key, value, comment);
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
    if (value == nullptr)
        logPrt("mCONF_GetIntValue, Section:%s, Name:%s, defaultValue:%d, ptr is NULL.", section, name, defaultValue);
    else
        logPrt("mCONF_GetIntValue, Section:%s, Name:%s, defaultValue:%d, ptr:%s.", section, name, defaultValue, value);
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
