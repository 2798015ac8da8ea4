// mCONF data model and accessors: the root group, update rules, "COMMAND",
// typed reads, and the lookup index checked against a plain model under
// seeded random operations.
#include "../../conf/confstore.h"
#include "mconf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace {

struct Store {
    tConfGroup* root = mCONF_New();
    ~Store() { mCONF_Free(root); }
};

using Lines = std::vector<std::string>;

Lines groupNames(tConfGroup* root)
{
    Lines names;
    for (tConfGroup* g = root; g != nullptr; g = g->next)
        names.emplace_back(g->name);
    return names;
}

// key=value[;comment] per item, in list order.
Lines itemsOf(tConfGroup* group)
{
    Lines items;
    for (tConfItem* it = group != nullptr ? group->items : nullptr; it != nullptr; it = it->next)
        items.push_back(std::string(it->key) + "=" + it->value + (it->comment ? std::string(";") + it->comment : ""));
    return items;
}

std::string captured(const std::function<void()>& fn)
{
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

TEST(ConfStore, RootAndNullArguments)
{
    Store s;
    EXPECT_STREQ(s.root->name, "");
    EXPECT_EQ(mCONF_GetGroup(s.root, nullptr), s.root);
    EXPECT_EQ(mCONF_GetGroup(s.root, ""), s.root);
    mCONF_SetValue(s.root, nullptr, "a", "1", nullptr);
    mCONF_SetValue(s.root, "", "b", "2", nullptr);
    EXPECT_EQ(itemsOf(s.root), (Lines{"a=1", "b=2"}));
    EXPECT_STREQ(mCONF_GetValue(s.root, nullptr, "b"), "2");
    EXPECT_EQ(groupNames(s.root).size(), 1u);

    // A null key or value still makes the missing group, and gives null.
    EXPECT_EQ(mCONF_SetValue(s.root, "made", nullptr, "v", nullptr), nullptr);
    EXPECT_EQ(mCONF_SetValue(s.root, "made2", "k", nullptr, nullptr), nullptr);
    EXPECT_EQ(groupNames(s.root), (Lines{"", "made", "made2"}));
    EXPECT_EQ(mCONF_SetValue(nullptr, "g", "k", "v", nullptr), nullptr);
    EXPECT_EQ(mCONF_GetGroup(nullptr, "x"), nullptr);
    EXPECT_EQ(mCONF_GetItem(nullptr, "k"), nullptr);
    EXPECT_EQ(mCONF_GetValue(s.root, "made", nullptr), nullptr);
    EXPECT_EQ(mCONF_Free(nullptr), 0);
}

TEST(ConfStore, UpdatesAndCommand)
{
    Store s;
    tConfItem* first = mCONF_SetValue(s.root, "g", "a", "1", "first");
    mCONF_SetValue(s.root, "g", "b", "2", nullptr);
    EXPECT_EQ(mCONF_SetValue(s.root, "g", "a", "9", "second"), first) << "the old item, in its place";
    mCONF_SetValue(s.root, "g", "c", "3", "");
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "g")), (Lines{"a=9;first", "b=2", "c=3;"}));

    tConfItem* x1 = mCONF_SetValue(s.root, "COMMAND", "x", "1", nullptr);
    mCONF_SetValue(s.root, "COMMAND", "x", "2", nullptr);
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "COMMAND")), (Lines{"x=1", "x=2"}));
    EXPECT_EQ(mCONF_GetItem(mCONF_GetGroup(s.root, "COMMAND"), "x"), x1) << "lookups give the first";
    mCONF_SetValue(s.root, "command", "x", "1", nullptr);
    mCONF_SetValue(s.root, "command", "x", "2", nullptr);
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "command")), (Lines{"x=2"})) << "only the exact name appends";
    EXPECT_EQ(mCONF_GetGroup(s.root, "G"), nullptr) << "names are case-sensitive";

    // The store copies; and a value set from its own old text is copied
    // before the old text goes.
    char key[] = "own";
    mCONF_SetValue(s.root, "g", key, "abcdef", nullptr);
    key[0] = 'X';
    mCONF_SetValue(s.root, "g", "own", mCONF_GetValue(s.root, "g", "own") + 2, nullptr);
    EXPECT_STREQ(mCONF_GetValue(s.root, "g", "own"), "cdef");
}

TEST(ConfStore, TypedReads)
{
    Store s;
    const std::pair<int, const char*> ints[] = {{-1, "-1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto& c : ints) {
        mCONF_SetValueInt(s.root, "n", "v", c.first, nullptr);
        EXPECT_STREQ(mCONF_GetValue(s.root, "n", "v"), c.second);
    }

    mCONF_SetValue(s.root, "g", "n", "12abc", nullptr);
    mCONF_SetValue(s.root, "g", "t", "abc", nullptr);
    struct IntCase {
        const char* key;
        int result;
        const char* log;
    } intCases[] = {
        {"n", 12, "mCONF_GetIntValue, Section:g, Name:n, defaultValue:5, ptr:12abc.\n"},
        {"t", 0, "mCONF_GetIntValue, Section:g, Name:t, defaultValue:5, ptr:abc.\n"},
        {"none", 5, "mCONF_GetIntValue, Section:g, Name:none, defaultValue:5, ptr is NULL.\n"},
    };
    for (const IntCase& c : intCases) {
        int r = 0;
        const std::string out = captured([&] { r = mCONF_GetIntValue(s.root, "g", c.key, 5); });
        EXPECT_EQ(r, c.result) << c.key;
        EXPECT_EQ(out.substr(out.size() > 15 ? 15 : 0), c.log) << "after the timestamp";
    }

    struct HexCase {
        const char* value; // null: no item
        int result;
    } hexCases[] = {
        {"0x1F", 31}, {"0X1f", 31}, {"0x", -5},     {"1F", -5},           {"0xZ", 0},
        {"0x12Z3", 18}, {"0xffffffff", -1}, {"0x123456789", 0x23456789}, {"00x1", -5}, {nullptr, -5},
    };
    for (const HexCase& c : hexCases) {
        if (c.value != nullptr)
            mCONF_SetValue(s.root, "h", "v", c.value, nullptr);
        EXPECT_EQ(mCONF_GetHexaValue(s.root, "h", c.value ? "v" : "missing", -5), c.result) << (c.value ? c.value : "-");
    }

    char dst[16] = "untouched";
    EXPECT_EQ(mCONF_GetStrValue(s.root, "g", "t", dst, "def"), dst);
    EXPECT_STREQ(dst, "abc");
    EXPECT_EQ(mCONF_GetStrValue(s.root, "g", "none", dst, "def"), dst);
    EXPECT_STREQ(dst, "def");
    strcpy(dst, "untouched");
    EXPECT_EQ(mCONF_GetStrValue(s.root, "g", "none", dst, nullptr), nullptr);
    EXPECT_STREQ(dst, "untouched");
}

TEST(ConfStore, PrintAllItemOfGroup)
{
    Store s;
    mCONF_SetValue(s.root, "g", "a", "1", "not printed");
    mCONF_SetValue(s.root, "g", "b", "2", nullptr);
    mCONF_AddGroup(s.root, "empty");
    int r = -1;
    EXPECT_EQ(captured([&] { r = printAllItemOfGroup(s.root, "g"); }), "group:g\n\t a=1\n\t b=2\n");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(captured([&] { r = printAllItemOfGroup(s.root, "empty"); }), "group:empty\n");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(captured([&] { r = printAllItemOfGroup(s.root, "missing"); }), "");
    EXPECT_EQ(r, 0);
}

// Groups added through a lone group, or through a later group of a store,
// keep the lists and the store's index whole.
TEST(ConfStore, AddGroupFromOtherThanTheRoot)
{
    tConfGroup* lone = mCONF_AddGroup(nullptr, "lone");
    ASSERT_NE(lone, nullptr);
    mCONF_AddItem(lone, "k", "1", nullptr);
    mCONF_AddItem(lone, "k", "2", nullptr);
    EXPECT_EQ(itemsOf(lone), (Lines{"k=2"}));
    EXPECT_EQ(mCONF_GetGroup(lone, "tail"), nullptr);
    tConfGroup* tail = mCONF_AddGroup(lone, "tail");
    EXPECT_EQ(lone->next, tail);
    mCONF_Free(lone);

    Store s;
    tConfGroup* a = mCONF_AddGroup(s.root, "a");
    mCONF_AddGroup(s.root, "b");
    tConfGroup* c = mCONF_AddGroup(a, "c");
    EXPECT_EQ(mCONF_AddGroup(a, "b"), mCONF_GetGroup(s.root, "b"));
    EXPECT_EQ(mCONF_GetGroup(s.root, "c"), c);
    mCONF_AddGroup(s.root, "d");
    EXPECT_EQ(groupNames(s.root), (Lines{"", "a", "b", "c", "d"}));
    EXPECT_EQ(mCONF_GetGroup(c, "a"), nullptr) << "a lookup from a later group walks from there";
}

// The index must give exactly what the lists say: a plain model runs beside
// the store through seeded random sets, across the size where a group goes
// from scanning to hashing, "COMMAND" and the root included.
TEST(ConfStore, IndexAgreesWithAModel)
{
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 rng(seed);
        Store s;
        std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> model = {{"", {}}};
        const unsigned groups = 1 + rng() % 40, keys = 1 + rng() % 300;
        for (int op = 0; op < 4000; ++op) {
            const unsigned pick = rng() % 10;
            const std::string name = pick == 0 ? "" : pick == 1 ? "COMMAND" : "g" + std::to_string(rng() % groups);
            const std::string key = "k" + std::to_string(rng() % keys);
            const std::string value = "v" + std::to_string(op);
            ASSERT_NE(mCONF_SetValue(s.root, name.c_str(), key.c_str(), value.c_str(), nullptr), nullptr);
            auto g = std::find_if(model.begin(), model.end(), [&](auto& e) { return e.first == name; });
            if (g == model.end())
                g = model.insert(model.end(), {name, {}});
            auto it = std::find_if(g->second.begin(), g->second.end(), [&](auto& e) { return e.first == key; });
            if (it != g->second.end() && name != "COMMAND")
                it->second = value;
            else
                g->second.push_back({key, value});
        }
        Lines names;
        for (auto& g : model) {
            names.push_back(g.first);
            Lines items;
            for (auto& it : g.second)
                items.push_back(it.first + "=" + it.second);
            ASSERT_EQ(itemsOf(mCONF_GetGroup(s.root, g.first.c_str())), items) << "seed " << seed;
            for (unsigned k = 0; k < keys + 2; ++k) {
                const std::string key = "k" + std::to_string(k);
                auto it = std::find_if(g.second.begin(), g.second.end(), [&](auto& e) { return e.first == key; });
                const char* got = mCONF_GetValue(s.root, g.first.c_str(), key.c_str());
                EXPECT_EQ(got != nullptr ? std::string(got) : "(null)", it != g.second.end() ? it->second : "(null)");
            }
        }
        ASSERT_EQ(groupNames(s.root), names) << "seed " << seed;
    }
}

TEST(ConfStore, LargeGroupAndManyGroups)
{
    Store s;
    const int n = 50000;
    for (int i = 0; i < n; ++i) {
        const std::string k = "key" + std::to_string(i);
        ASSERT_NE(mCONF_SetValue(s.root, "big", k.c_str(), "x", nullptr), nullptr);
        ASSERT_NE(mCONF_SetValue(s.root, ("grp" + std::to_string(i)).c_str(), "k", k.c_str(), nullptr), nullptr);
    }
    for (int i = 0; i < n; i += 997) {
        const std::string k = "key" + std::to_string(i);
        mCONF_SetValue(s.root, "big", k.c_str(), "y", nullptr);
        EXPECT_STREQ(mCONF_GetValue(s.root, "big", k.c_str()), "y");
        EXPECT_STREQ(mCONF_GetValue(s.root, ("grp" + std::to_string(i)).c_str(), "k"), k.c_str());
    }
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "big")).size(), static_cast<size_t>(n));
    EXPECT_EQ(groupNames(s.root).size(), static_cast<size_t>(n) + 2);
}

} // namespace
