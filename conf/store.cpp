// mCONF: the data model and its accessors.
//
// The lists of mconf.h are the store: order of first insertion, one node per
// group and item. Beside them the library keeps an index so that a lookup or
// a set costs O(1) on average however large the store grows:
//   - every group carries a tConfIndex (tail pointer, item count, and for a
//     group of more than kLinearMax items a hash table key -> first item);
//   - the root's index points at the StoreIndex (tail pointer and a hash
//     table name -> group).
// A small group is scanned instead: up to kLinearMax keys cost less than a
// table, in time and memory.
//
// Memory: an item is one block [tConfItem | key | value | comment], a group
// one block [tConfGroup | tConfIndex | name]. The blocks of a store come from
// its arena (large chunks, freed together), which keeps both the allocation
// and mCONF_Free cheap and the nodes close together. A replaced value gets
// an allocation of its own; the value inside the block is then no longer
// used. Under AddressSanitizer every block is its own chunk, so that the
// sanitizer still sees the bounds of each node.
#include "confstore.h"
#include "mlog.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <type_traits>

#if defined(__SANITIZE_ADDRESS__)
#define VX_CONF_BLOCK_PER_NODE 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VX_CONF_BLOCK_PER_NODE 1
#endif
#endif
#ifndef VX_CONF_BLOCK_PER_NODE
#define VX_CONF_BLOCK_PER_NODE 0
#endif

namespace {

int g_debugLevel = 0;

constexpr char kCommandGroup[] = "COMMAND";
// Groups with up to this many items are scanned, not hashed.
constexpr size_t kLinearMax = 16;
// Smallest hash table; tables stay at most half full.
constexpr size_t kMinSlots = 64;

// Memory for large arrays, zeroed unless told. From 2 MB on it is mapped on
// its own (and so zeroed in any case),
// aligned to 2 MB and offered for huge pages: a large table is probed at
// random, and with small pages nearly every probe would also miss the TLB.
constexpr size_t kHugePage = 2 * 1024 * 1024;

void* bigAlloc(size_t bytes, bool zeroed = true)
{
    if (bytes < kHugePage)
        return zeroed ? calloc(1, bytes) : malloc(bytes);
    const size_t size = (bytes + kHugePage - 1) & ~(kHugePage - 1);
    void* raw = mmap(nullptr, size + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED)
        return nullptr;
    // Keep the aligned part, give back the rest.
    const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
    const uintptr_t aligned = (start + kHugePage - 1) & ~(static_cast<uintptr_t>(kHugePage) - 1);
    if (aligned > start)
        munmap(raw, aligned - start);
    const uintptr_t end = start + size + kHugePage;
    if (end > aligned + size)
        munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
#ifdef MADV_HUGEPAGE
    madvise(reinterpret_cast<void*>(aligned), size, MADV_HUGEPAGE);
#endif
    return reinterpret_cast<void*>(aligned);
}

void bigFree(void* p, size_t bytes)
{
    if (p == nullptr)
        return;
    if (bytes < kHugePage)
        free(p);
    else
        munmap(p, (bytes + kHugePage - 1) & ~(kHugePage - 1));
}

// An open-addressing table with linear probing, kept at most half full. A
// slot is one word: the key's 32-bit hash and the number of its entry (0 for
// an empty slot); the entries list the nodes in order of insertion. Probing
// and growing read the slots alone, and a slot of 8 bytes keeps even a table
// of a million keys small enough to stay mostly in the cache.
struct HashTable {
    uint64_t* slots = nullptr;
    size_t mask = 0;        // slot count - 1, when slots is not null
    size_t used = 0;        // entries
    void** nodes = nullptr; // entry -> node
    size_t nodeCap = 0;
};

// A fast hash of short texts: eight bytes at a time, mixed by 64-bit
// multiplication and shifts (plain 64-bit arithmetic, also on 32-bit CPUs).
inline uint64_t mix(uint64_t h, uint64_t w)
{
    h ^= w * 0x9e3779b97f4a7c15ull;
    h ^= h >> 32;
    h *= 0xd6e8feb86659fd93ull;
    h ^= h >> 29;
    return h;
}

uint32_t hashText(const char* s, size_t n)
{
    uint64_t h = 0x8ebc6af09c88c6e3ull ^ n;
    for (; n >= 8; n -= 8, s += 8) {
        uint64_t w;
        memcpy(&w, s, 8);
        h = mix(h, w);
    }
    uint64_t tail = 0;
    memcpy(&tail, s, n);
    h = mix(h, tail ^ 0x589965cc75374cc3ull);
    return static_cast<uint32_t>(h ^ (h >> 32));
}

// text (NUL-terminated) equals the n bytes at key, which hold no NUL.
inline bool sameText(const char* text, const char* key, size_t n)
{
    return strncmp(text, key, n) == 0 && text[n] == '\0';
}

void tableFree(HashTable& t)
{
    if (t.slots != nullptr)
        bigFree(t.slots, (t.mask + 1) * sizeof(uint64_t));
    free(t.nodes);
    t = HashTable();
}

// Makes room for `needed` entries. False, and the table as it was, if memory
// runs out (or the entries would pass 32 bits).
bool tableReserve(HashTable& t, size_t needed)
{
    if (needed >= UINT32_MAX)
        return false;
    if (needed > t.nodeCap) {
        size_t cap = t.nodeCap != 0 ? t.nodeCap : kMinSlots / 2;
        while (cap < needed)
            cap *= 2;
        void** nodes = static_cast<void**>(realloc(t.nodes, cap * sizeof(void*)));
        if (nodes == nullptr)
            return false;
        t.nodes = nodes;
        t.nodeCap = cap;
    }
    const size_t slotCount = t.slots != nullptr ? t.mask + 1 : 0;
    if (needed <= slotCount / 2)
        return true;
    size_t want = slotCount != 0 ? slotCount : kMinSlots;
    while (needed > want / 2)
        want *= 2;
    uint64_t* fresh = static_cast<uint64_t*>(bigAlloc(want * sizeof(uint64_t)));
    if (fresh == nullptr)
        return false;
    const size_t mask = want - 1;
    constexpr size_t kAhead = 16; // slots whose new place is fetched early
    for (size_t i = 0; i < slotCount; ++i) {
        if (i + kAhead < slotCount && t.slots[i + kAhead] != 0)
            __builtin_prefetch(&fresh[(t.slots[i + kAhead] >> 32) & mask], 1);
        const uint64_t slot = t.slots[i];
        if (slot == 0)
            continue;
        size_t j = (slot >> 32) & mask;
        while (fresh[j] != 0)
            j = (j + 1) & mask;
        fresh[j] = slot;
    }
    if (t.slots != nullptr)
        bigFree(t.slots, slotCount * sizeof(uint64_t));
    t.slots = fresh;
    t.mask = mask;
    return true;
}

// Inserts a node whose key is known to be absent; room was reserved.
void tableInsert(HashTable& t, uint32_t hash, void* node)
{
    t.nodes[t.used] = node;
    ++t.used;
    size_t i = hash & t.mask;
    while (t.slots[i] != 0)
        i = (i + 1) & t.mask;
    t.slots[i] = (static_cast<uint64_t>(hash) << 32) | t.used;
}

template <class KeyOf>
void* tableFind(const HashTable& t, uint32_t hash, const char* key, size_t len, KeyOf keyOf)
{
    if (t.slots == nullptr)
        return nullptr;
    for (size_t i = hash & t.mask;; i = (i + 1) & t.mask) {
        const uint64_t slot = t.slots[i];
        if (slot == 0)
            return nullptr;
        if (static_cast<uint32_t>(slot >> 32) == hash) {
            void* node = t.nodes[static_cast<uint32_t>(slot) - 1];
            if (sameText(keyOf(node), key, len))
                return node;
        }
    }
}

const char* itemKey(void* node) { return static_cast<tConfItem*>(node)->key; }
const char* groupName(void* node) { return static_cast<tConfGroup*>(node)->name; }

// Bump allocation from chunks that are only freed all at once. Chunks grow
// from 4 KB to 2 MB (4, 16, 64 KB, then 2 MB), so a small store stays small and a large one is made of
// huge pages (see bigAlloc); a block larger than a quarter chunk gets a
// chunk of its own behind the current one.
class Arena {
public:
    void* alloc(size_t n)
    {
        n = (n + 15) & ~static_cast<size_t>(15);
        if (n == 0 || n > SIZE_MAX / 2)
            return nullptr;
        if (VX_CONF_BLOCK_PER_NODE || n > nextSize_ / 4) {
            Chunk* c = newChunk(sizeof(Chunk) + n);
            if (c == nullptr)
                return nullptr;
            if (head_ != nullptr) {
                c->next = head_->next;
                head_->next = c;
            } else {
                head_ = c;
            }
            c->used = sizeof(Chunk) + n;
            return c + 1;
        }
        if (head_ == nullptr || head_->size - head_->used < n) {
            Chunk* c = newChunk(nextSize_);
            if (c == nullptr)
                return nullptr;
            c->next = head_;
            head_ = c;
            // Quadrupling up to 64 KB, then whole huge pages: a store that
            // outgrows a few small chunks is likely to grow large.
            if (nextSize_ < kMaxChunk)
                nextSize_ = nextSize_ < 64 * 1024 ? nextSize_ * 4 : kMaxChunk;
        }
        void* p = reinterpret_cast<char*>(head_) + head_->used;
        head_->used += n;
        return p;
    }

    void release()
    {
        for (Chunk* c = head_; c != nullptr;) {
            Chunk* next = c->next;
            bigFree(c, c->size);
            c = next;
        }
        head_ = nullptr;
    }

private:
    struct Chunk {
        Chunk* next;
        size_t size; // bytes of the chunk, this head included
        size_t used; // bytes in use, this head included
        size_t pad;  // keeps the data 16-byte aligned
    };
    static constexpr size_t kMaxChunk = kHugePage;

    static Chunk* newChunk(size_t size)
    {
        Chunk* c = static_cast<Chunk*>(bigAlloc(size, false));
        if (c != nullptr) {
            c->next = nullptr;
            c->size = size;
            c->used = sizeof(Chunk);
        }
        return c;
    }

    Chunk* head_ = nullptr;
    size_t nextSize_ = 4096;
};

} // namespace

struct StoreIndex;

// The per-group part of the index (declared in mconf.h as opaque).
struct tConfIndex {
    tConfItem* lastItem = nullptr;
    size_t itemCount = 0;
    HashTable items; // key -> first item; only above kLinearMax items
    bool isCommand = false;
    StoreIndex* store = nullptr; // the store of the group; null for a lone group
};

// The store-wide part, reachable from the root's index.
struct StoreIndex {
    tConfGroup* root = nullptr;
    tConfGroup* lastGroup = nullptr;
    HashTable groups; // name -> group, every group but the root
    Arena nodes;      // every group and item block of the store
};

static_assert(std::is_trivially_destructible<tConfIndex>::value, "group blocks are freed without destructors");
static_assert(std::is_trivially_destructible<StoreIndex>::value, "the store is freed without a destructor");

namespace {

StoreIndex* storeOfRoot(tConfGroup* root)
{
    if (root == nullptr || root->index == nullptr)
        return nullptr;
    StoreIndex* st = root->index->store;
    return st != nullptr && st->root == root ? st : nullptr;
}

char* copyText(char* at, const char* text, size_t len)
{
    memcpy(at, text, len);
    at[len] = '\0';
    return at;
}

char* dupText(const char* text, size_t len)
{
    char* p = static_cast<char*>(malloc(len + 1));
    return p != nullptr ? copyText(p, text, len) : nullptr;
}

// The value text inside the item's own block.
inline const char* inlineValue(const tConfItem* item) { return item->key + strlen(item->key) + 1; }

// A node block: from the store's arena, or from the heap for a lone group.
void* allocNode(StoreIndex* store, size_t n) { return store != nullptr ? store->nodes.alloc(n) : malloc(n); }

// Gives back a node that was made but not linked.
void dropNode(StoreIndex* store, void* node)
{
    // An arena block is simply left unused until the store is freed.
    if (store == nullptr)
        free(node);
}

void freeReplacedValue(tConfItem* item)
{
    if (item->value != inlineValue(item))
        free(item->value);
}

tConfItem* newItem(StoreIndex* store, const char* key, size_t keyLen, const char* value, size_t valueLen,
                   const char* comment, size_t commentLen)
{
    const size_t textBytes = keyLen + 1 + valueLen + 1 + (comment != nullptr ? commentLen + 1 : 0);
    if (textBytes < keyLen || textBytes > SIZE_MAX - sizeof(tConfItem))
        return nullptr;
    void* block = allocNode(store, sizeof(tConfItem) + textBytes);
    if (block == nullptr)
        return nullptr;
    tConfItem* item = static_cast<tConfItem*>(block);
    char* text = reinterpret_cast<char*>(item + 1);
    item->next = nullptr;
    item->key = copyText(text, key, keyLen);
    item->value = copyText(text + keyLen + 1, value, valueLen);
    item->comment = comment != nullptr ? copyText(text + keyLen + 1 + valueLen + 1, comment, commentLen) : nullptr;
    return item;
}

tConfGroup* newGroup(const char* name, size_t nameLen, StoreIndex* store)
{
    if (nameLen > SIZE_MAX - sizeof(tConfGroup) - sizeof(tConfIndex) - 1)
        return nullptr;
    void* block = allocNode(store, sizeof(tConfGroup) + sizeof(tConfIndex) + nameLen + 1);
    if (block == nullptr)
        return nullptr;
    tConfGroup* group = static_cast<tConfGroup*>(block);
    tConfIndex* index = new (group + 1) tConfIndex();
    group->next = nullptr;
    group->items = nullptr;
    group->name = copyText(reinterpret_cast<char*>(index + 1), name, nameLen);
    group->index = index;
    index->isCommand = strcmp(group->name, kCommandGroup) == 0;
    index->store = store;
    return group;
}

// Frees what a group owns beside its block; the blocks themselves only for
// a lone group (a store frees its arena at once).
void freeGroup(tConfGroup* group, bool blocks)
{
    for (tConfItem* item = group->items; item != nullptr;) {
        tConfItem* next = item->next;
        freeReplacedValue(item);
        if (blocks)
            free(item);
        item = next;
    }
    if (group->index != nullptr)
        tableFree(group->index->items);
    if (blocks)
        free(group);
}

tConfItem* findItemLinear(tConfItem* first, const char* key, size_t len)
{
    for (tConfItem* item = first; item != nullptr; item = item->next)
        if (sameText(item->key, key, len))
            return item;
    return nullptr;
}

// Builds the key table of a group that outgrows the linear scan, for its
// present items and one more. Duplicates (in "COMMAND") keep their first item.
bool buildItemTable(tConfGroup* group)
{
    tConfIndex* ix = group->index;
    if (!tableReserve(ix->items, ix->itemCount + 1))
        return false;
    for (tConfItem* item = group->items; item != nullptr; item = item->next) {
        const size_t len = strlen(item->key);
        const uint32_t h = hashText(item->key, len);
        if (tableFind(ix->items, h, item->key, len, itemKey) == nullptr)
            tableInsert(ix->items, h, item);
    }
    return true;
}

// Links an item at the end of a group that has no index (a caller-made
// group): the plain list walk.
void appendUnindexed(tConfGroup* group, tConfItem* item)
{
    tConfItem** link = &group->items;
    while (*link != nullptr)
        link = &(*link)->next;
    *link = item;
}

} // namespace

tConfItem* confAddItemN(tConfGroup* group, const char* key, size_t keyLen, const char* value, size_t valueLen,
                        const char* comment, size_t commentLen, const uint32_t* keyHash)
{
    if (group == nullptr || key == nullptr || value == nullptr)
        return nullptr;
    // A text ends at its first NUL (a key decoded from "%00" does); the
    // block layout relies on that.
    keyLen = strnlen(key, keyLen);
    valueLen = strnlen(value, valueLen);
    if (comment != nullptr)
        commentLen = strnlen(comment, commentLen);
    tConfIndex* ix = group->index;
    if (ix == nullptr) {
        // No index: the lists alone, as they are.
        const bool command = group->name != nullptr && strcmp(group->name, kCommandGroup) == 0;
        tConfItem* old = command ? nullptr : findItemLinear(group->items, key, keyLen);
        if (old != nullptr) {
            char* fresh = dupText(value, valueLen);
            if (fresh == nullptr)
                return nullptr;
            if (old->value != inlineValue(old))
                free(old->value);
            old->value = fresh;
            return old;
        }
        tConfItem* item = newItem(nullptr, key, keyLen, value, valueLen, comment, commentLen);
        if (item != nullptr)
            appendUnindexed(group, item);
        return item;
    }

    const bool hashed = ix->items.slots != nullptr;
    const bool needHash = hashed || ix->itemCount + 1 > kLinearMax;
    const uint32_t h = !needHash ? 0 : keyHash != nullptr ? *keyHash : hashText(key, keyLen);
    tConfItem* old = hashed ? static_cast<tConfItem*>(tableFind(ix->items, h, key, keyLen, itemKey))
                            : findItemLinear(group->items, key, keyLen);
    if (old != nullptr && !ix->isCommand) {
        // Update in place: the item keeps its place and its comment.
        char* fresh = dupText(value, valueLen);
        if (fresh == nullptr)
            return nullptr;
        if (old->value != inlineValue(old))
            free(old->value);
        old->value = fresh;
        return old;
    }

    tConfItem* item = newItem(ix->store, key, keyLen, value, valueLen, comment, commentLen);
    if (item == nullptr)
        return nullptr;
    // Room in the table first, so that a failure leaves the store as it was.
    const bool needTable = hashed || ix->itemCount + 1 > kLinearMax;
    if (needTable) {
        const bool ok = hashed ? tableReserve(ix->items, ix->items.used + 1) : buildItemTable(group);
        if (!ok) {
            dropNode(ix->store, item);
            return nullptr;
        }
    }
    if (ix->lastItem != nullptr)
        ix->lastItem->next = item;
    else
        group->items = item;
    ix->lastItem = item;
    ++ix->itemCount;
    // The table maps a key to its first item: a repeated key in "COMMAND"
    // is already there.
    if (needTable && old == nullptr)
        tableInsert(ix->items, h, item);
    return item;
}

bool confPrefetchItem(tConfGroup* group, const char* key, size_t keyLen, uint32_t* keyHash)
{
    const tConfIndex* ix = group->index;
    if (ix == nullptr || ix->items.slots == nullptr)
        return false;
    // The same length as confAddItemN takes: the text up to its first NUL.
    *keyHash = hashText(key, strnlen(key, keyLen));
    __builtin_prefetch(&ix->items.slots[*keyHash & ix->items.mask]);
    return true;
}

tConfItem* mCONF_AddItem(tConfGroup* group, const char* key, const char* value, const char* comment)
{
    if (group == nullptr || key == nullptr || value == nullptr)
        return nullptr;
    return confAddItemN(group, key, strlen(key), value, strlen(value), comment,
                        comment != nullptr ? strlen(comment) : 0);
}

tConfGroup* confAddGroupN(tConfGroup* root, const char* name, size_t nameLen)
{
    if (name == nullptr)
        return nullptr;
    nameLen = strnlen(name, nameLen);
    if (root == nullptr)
        return newGroup(name, nameLen, nullptr);

    StoreIndex* st = storeOfRoot(root);
    if (st != nullptr) {
        // The root is the only group with the empty name.
        if (nameLen == 0)
            return root;
        const uint32_t h = hashText(name, nameLen);
        if (void* found = tableFind(st->groups, h, name, nameLen, groupName))
            return static_cast<tConfGroup*>(found);
        if (!tableReserve(st->groups, st->groups.used + 1))
            return nullptr;
        tConfGroup* group = newGroup(name, nameLen, st);
        if (group == nullptr)
            return nullptr;
        st->lastGroup->next = group;
        st->lastGroup = group;
        tableInsert(st->groups, h, group);
        return group;
    }

    // Not the root of an indexed store: walk the list from the given group.
    tConfGroup* last = root;
    for (tConfGroup* g = root; g != nullptr; g = g->next) {
        if (g->name != nullptr && sameText(g->name, name, nameLen))
            return g;
        last = g;
    }
    StoreIndex* owner = root->index != nullptr ? root->index->store : nullptr;
    if (owner == nullptr) {
        tConfGroup* group = newGroup(name, nameLen, nullptr);
        if (group != nullptr)
            last->next = group;
        return group;
    }
    // A later group of an indexed store: append through the store so that
    // its tail and table stay right.
    const uint32_t h = hashText(name, nameLen);
    if (!tableReserve(owner->groups, owner->groups.used + 1))
        return nullptr;
    tConfGroup* group = newGroup(name, nameLen, owner);
    if (group == nullptr)
        return nullptr;
    owner->lastGroup->next = group;
    owner->lastGroup = group;
    if (tableFind(owner->groups, h, name, nameLen, groupName) == nullptr)
        tableInsert(owner->groups, h, group);
    return group;
}

tConfGroup* mCONF_AddGroup(tConfGroup* root, const char* name)
{
    if (name == nullptr)
        return nullptr;
    return confAddGroupN(root, name, strlen(name));
}

tConfGroup* mCONF_New(void)
{
    StoreIndex* st = static_cast<StoreIndex*>(malloc(sizeof(StoreIndex)));
    if (st == nullptr)
        return nullptr;
    new (st) StoreIndex();
    tConfGroup* root = newGroup("", 0, st);
    if (root == nullptr) {
        st->nodes.release();
        free(st);
        return nullptr;
    }
    st->root = root;
    st->lastGroup = root;
    return root;
}

int mCONF_Free(tConfGroup* root)
{
    if (root == nullptr)
        return 0;
    StoreIndex* st = storeOfRoot(root);
    for (tConfGroup* g = root; g != nullptr;) {
        tConfGroup* next = g->next;
        freeGroup(g, st == nullptr);
        g = next;
    }
    if (st != nullptr) {
        tableFree(st->groups);
        st->nodes.release();
        free(st);
    }
    return 0;
}

tConfGroup* mCONF_GetGroup(tConfGroup* root, const char* name)
{
    if (root == nullptr)
        return nullptr;
    const bool anyEmpty = name == nullptr || name[0] == '\0';
    if (StoreIndex* st = storeOfRoot(root)) {
        if (anyEmpty)
            return root;
        const size_t len = strlen(name);
        return static_cast<tConfGroup*>(tableFind(st->groups, hashText(name, len), name, len, groupName));
    }
    for (tConfGroup* g = root; g != nullptr; g = g->next) {
        const bool emptyName = g->name == nullptr || g->name[0] == '\0';
        if (anyEmpty ? emptyName : (g->name != nullptr && strcmp(g->name, name) == 0))
            return g;
    }
    return nullptr;
}

tConfItem* mCONF_GetItem(tConfGroup* group, const char* key)
{
    if (group == nullptr || key == nullptr)
        return nullptr;
    const size_t len = strlen(key);
    tConfIndex* ix = group->index;
    if (ix != nullptr && ix->items.slots != nullptr)
        return static_cast<tConfItem*>(tableFind(ix->items, hashText(key, len), key, len, itemKey));
    return findItemLinear(group->items, key, len);
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
    if (root == nullptr)
        return nullptr;
    tConfGroup* group = mCONF_GetGroup(root, groupName);
    if (group == nullptr) {
        group = mCONF_AddGroup(root, groupName);
        if (group == nullptr)
            return nullptr;
    }
    return mCONF_AddItem(group, key, value, comment);
}

tConfItem* mCONF_SetValueInt(tConfGroup* root, const char* groupName, const char* key, int value,
                             const char* comment)
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
    // The name as the caller gave it; a null one prints as the C library
    // prints a null %s.
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
    if (value == nullptr) {
        logPrt("mCONF_GetIntValue, Section:%s, Name:%s, defaultValue:%d, ptr is NULL.", section, name,
               defaultValue);
        return defaultValue;
    }
    logPrt("mCONF_GetIntValue, Section:%s, Name:%s, defaultValue:%d, ptr:%s.", section, name, defaultValue, value);
    return static_cast<int>(strtol(value, nullptr, 10));
}

int mCONF_GetHexaValue(tConfGroup* root, const char* groupName, const char* key, int defaultValue)
{
    const char* value = mCONF_GetValue(root, groupName, key);
    if (value == nullptr || value[0] == '\0' || value[1] == '\0' || value[2] == '\0')
        return defaultValue;
    if (value[0] != '0' || (value[1] != 'x' && value[1] != 'X'))
        return defaultValue;
    uint32_t result = 0;
    for (const char* p = value + 2;; ++p) {
        const char c = *p;
        uint32_t digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<uint32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            digit = static_cast<uint32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            digit = static_cast<uint32_t>(c - 'A' + 10);
        else
            break;
        result = (result << 4) | digit;
    }
    return static_cast<int>(result);
}

char* mCONF_GetStrValue(tConfGroup* root, const char* groupName, const char* key, char* dst,
                        const char* defaultValue)
{
    // dst is sized by the caller, who knows the value's length; the library
    // has no length to check against.
    if (dst == nullptr)
        return nullptr;
    const char* value = mCONF_GetValue(root, groupName, key);
    if (value == nullptr)
        value = defaultValue;
    if (value == nullptr)
        return nullptr;
    return strcpy(dst, value);
}
