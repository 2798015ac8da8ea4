// mCONF data model and accessors: the root group, update rules, "COMMAND",
// typed reads, and the lookup index checked against a plain model under
// seeded random operations.
#include "../../conf/confstore.h"
#include "mconf.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Store {
    tConfGroup* root = mCONF_New();
    ~Store() { mCONF_Free(root); }
};

std::vector<std::string> groupNames(tConfGroup* root)
{
    std::vector<std::string> names;
    for (tConfGroup* g = root; g != nullptr; g = g->next)
        names.emplace_back(g->name);
    return names;
}

// key=value[;comment] per item, in list order.
std::vector<std::string> itemsOf(tConfGroup* group)
{
    std::vector<std::string> items;
    for (tConfItem* it = group != nullptr ? group->items : nullptr; it != nullptr; it = it->next) {
        std::string s = std::string(it->key) + "=" + it->value;
        if (it->comment != nullptr)
            s += std::string(";") + it->comment;
        items.push_back(s);
    }
    return items;
}

std::string stripStamp(const std::string& out)
{
    // "[hh:mm:ss.mmm] " prefix of logPrt.
    return out.size() > 15 && out[0] == '[' ? out.substr(15) : out;
}

TEST(ConfStore, NewHoldsOnlyTheRoot)
{
    Store s;
    ASSERT_NE(s.root, nullptr);
    EXPECT_STREQ(s.root->name, "");
    EXPECT_EQ(s.root->next, nullptr);
    EXPECT_EQ(s.root->items, nullptr);
    EXPECT_EQ(mCONF_Free(nullptr), 0);
}

TEST(ConfStore, NullAndEmptyGroupNameMeanTheRoot)
{
    Store s;
    EXPECT_EQ(mCONF_GetGroup(s.root, nullptr), s.root);
    EXPECT_EQ(mCONF_GetGroup(s.root, ""), s.root);
    EXPECT_EQ(mCONF_GetGroup(nullptr, "x"), nullptr);
    ASSERT_NE(mCONF_SetValue(s.root, nullptr, "a", "1", nullptr), nullptr);
    ASSERT_NE(mCONF_SetValue(s.root, "", "b", "2", nullptr), nullptr);
    EXPECT_EQ(itemsOf(s.root), (std::vector<std::string>{"a=1", "b=2"}));
    EXPECT_STREQ(mCONF_GetValue(s.root, nullptr, "b"), "2");
    EXPECT_STREQ(mCONF_GetValue(s.root, "", "a"), "1");
    EXPECT_EQ(groupNames(s.root).size(), 1u) << "no group was added";
}

TEST(ConfStore, UpdateKeepsPlaceAndFirstComment)
{
    Store s;
    mCONF_SetValue(s.root, "g", "a", "1", "first");
    mCONF_SetValue(s.root, "g", "b", "2", nullptr);
    tConfItem* again = mCONF_SetValue(s.root, "g", "a", "9", "second");
    tConfGroup* g = mCONF_GetGroup(s.root, "g");
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(again, g->items) << "the update returns the old item in its place";
    EXPECT_EQ(itemsOf(g), (std::vector<std::string>{"a=9;first", "b=2"}));
    // A null comment is none, "" an empty one.
    mCONF_SetValue(s.root, "g", "c", "3", "");
    EXPECT_NE(mCONF_GetItem(g, "c")->comment, nullptr);
    EXPECT_EQ(mCONF_GetItem(g, "b")->comment, nullptr);
}

TEST(ConfStore, CommandGroupAppendsEverySet)
{
    Store s;
    tConfItem* first = mCONF_SetValue(s.root, "COMMAND", "x", "1", nullptr);
    tConfItem* second = mCONF_SetValue(s.root, "COMMAND", "x", "2", nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "COMMAND")), (std::vector<std::string>{"x=1", "x=2"}));
    EXPECT_STREQ(mCONF_GetValue(s.root, "COMMAND", "x"), "1") << "lookups give the first";
    EXPECT_EQ(mCONF_GetItem(mCONF_GetGroup(s.root, "COMMAND"), "x"), first);

    // Only the exact name: "command" is an ordinary group.
    mCONF_SetValue(s.root, "command", "x", "1", nullptr);
    mCONF_SetValue(s.root, "command", "x", "2", nullptr);
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "command")), (std::vector<std::string>{"x=2"}));
}

TEST(ConfStore, GroupsInOrderOfFirstInsertion)
{
    Store s;
    for (const char* name : {"b", "a", "c", "a", "b"})
        mCONF_SetValue(s.root, name, "k", name, nullptr);
    EXPECT_EQ(groupNames(s.root), (std::vector<std::string>{"", "b", "a", "c"}));
    // Names are raw bytes, case-sensitive.
    EXPECT_EQ(mCONF_GetGroup(s.root, "A"), nullptr);
    EXPECT_EQ(mCONF_GetGroup(s.root, "a "), nullptr);
}

TEST(ConfStore, NullArgumentsAndTheHalfDoneSet)
{
    Store s;
    // A null key or value creates the missing group, and gives null.
    EXPECT_EQ(mCONF_SetValue(s.root, "made", nullptr, "v", nullptr), nullptr);
    EXPECT_NE(mCONF_GetGroup(s.root, "made"), nullptr);
    EXPECT_EQ(mCONF_SetValue(s.root, "made2", "k", nullptr, nullptr), nullptr);
    EXPECT_NE(mCONF_GetGroup(s.root, "made2"), nullptr);
    EXPECT_EQ(mCONF_GetItem(mCONF_GetGroup(s.root, "made"), nullptr), nullptr);
    EXPECT_EQ(mCONF_GetItem(nullptr, "k"), nullptr);
    EXPECT_EQ(mCONF_GetValue(s.root, "nope", "k"), nullptr);
    EXPECT_EQ(mCONF_GetValue(nullptr, "made", "k"), nullptr);
    EXPECT_EQ(mCONF_SetValue(nullptr, "g", "k", "v", nullptr), nullptr);
    EXPECT_EQ(mCONF_AddGroup(s.root, nullptr), nullptr);
    EXPECT_EQ(mCONF_AddItem(mCONF_GetGroup(s.root, "made"), "k", nullptr, nullptr), nullptr);
}

TEST(ConfStore, StoreOwnsCopies)
{
    Store s;
    char group[] = "grp";
    char key[] = "key";
    char value[] = "value";
    char comment[] = "note";
    mCONF_SetValue(s.root, group, key, value, comment);
    group[0] = key[0] = value[0] = comment[0] = 'X';
    EXPECT_EQ(itemsOf(mCONF_GetGroup(s.root, "grp")), (std::vector<std::string>{"key=value;note"}));
}

TEST(ConfStore, SettingAValueFromItsOwnText)
{
    Store s;
    mCONF_SetValue(s.root, "g", "k", "abcdef", nullptr);
    // The new value is copied before the old one goes.
    mCONF_SetValue(s.root, "g", "k", mCONF_GetValue(s.root, "g", "k") + 2, nullptr);
    EXPECT_STREQ(mCONF_GetValue(s.root, "g", "k"), "cdef");
    mCONF_SetValue(s.root, "g", "k", mCONF_GetValue(s.root, "g", "k") + 1, nullptr);
    EXPECT_STREQ(mCONF_GetValue(s.root, "g", "k"), "def");
}

TEST(ConfStore, SetValueInt)
{
    Store s;
    const std::pair<int, const char*> cases[] = {{-1, "-1"}, {0, "0"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto& c : cases) {
        ASSERT_NE(mCONF_SetValueInt(s.root, "n", "v", c.first, nullptr), nullptr);
        EXPECT_STREQ(mCONF_GetValue(s.root, "n", "v"), c.second);
    }
}

TEST(ConfStore, GetIntValueReadsAndLogs)
{
    Store s;
    mCONF_SetValue(s.root, "g", "n", "12abc", nullptr);
    mCONF_SetValue(s.root, "g", "t", "abc", nullptr);
    mCONF_SetValue(s.root, "g", "m", " -42", nullptr);
    struct Case {
        const char* key;
        int def;
        int result;
        const char* log;
    } cases[] = {
        {"n", 5, 12, "mCONF_GetIntValue, Section:g, Name:n, defaultValue:5, ptr:12abc.\n"},
        {"t", 5, 0, "mCONF_GetIntValue, Section:g, Name:t, defaultValue:5, ptr:abc.\n"},
        {"m", 5, -42, "mCONF_GetIntValue, Section:g, Name:m, defaultValue:5, ptr: -42.\n"},
        {"none", 7, 7, "mCONF_GetIntValue, Section:g, Name:none, defaultValue:7, ptr is NULL.\n"},
    };
    for (const Case& c : cases) {
        testing::internal::CaptureStdout();
        const int r = mCONF_GetIntValue(s.root, "g", c.key, c.def);
        fflush(stdout);
        const std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(r, c.result) << c.key;
        EXPECT_EQ(stripStamp(out), c.log) << c.key;
    }
}

TEST(ConfStore, GetHexaValue)
{
    Store s;
    struct Case {
        const char* value; // null: no item
        int result;
    } cases[] = {
        {"0x1F", 31},   {"0X1f", 31},  {"0x", -5},           {"1F", -5},
        {"0xZ", 0},     {"0x12Z3", 18}, {"0xffffffff", -1},  {"0x123456789", 0x23456789},
        {"00x1", -5},   {"0x7fffffff", INT_MAX}, {nullptr, -5}, {"x", -5},
    };
    for (const Case& c : cases) {
        if (c.value != nullptr)
            mCONF_SetValue(s.root, "h", "v", c.value, nullptr);
        const char* key = c.value != nullptr ? "v" : "missing";
        EXPECT_EQ(mCONF_GetHexaValue(s.root, "h", key, -5), c.result) << (c.value ? c.value : "(missing)");
    }
}

TEST(ConfStore, GetStrValue)
{
    Store s;
    mCONF_SetValue(s.root, "g", "k", "text", nullptr);
    char dst[16];
    strcpy(dst, "untouched");
    EXPECT_EQ(mCONF_GetStrValue(s.root, "g", "k", dst, "def"), dst);
    EXPECT_STREQ(dst, "text");
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
    struct Case {
        const char* group;
        int result;
        const char* out;
    } cases[] = {
        {"g", 1, "group:g\n\t a=1\n\t b=2\n"},
        {"empty", 1, "group:empty\n"},
        {"missing", 0, ""},
    };
    for (const Case& c : cases) {
        testing::internal::CaptureStdout();
        const int r = printAllItemOfGroup(s.root, c.group);
        fflush(stdout);
        EXPECT_EQ(r, c.result) << c.group;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.out) << c.group;
    }
}

TEST(ConfStore, LoneGroupAndAddGroupFromALaterGroup)
{
    // mCONF_AddGroup with a null root makes a group linked to nothing.
    tConfGroup* lone = mCONF_AddGroup(nullptr, "lone");
    ASSERT_NE(lone, nullptr);
    EXPECT_EQ(lone->next, nullptr);
    mCONF_AddItem(lone, "k", "1", nullptr);
    mCONF_AddItem(lone, "k", "2", nullptr);
    EXPECT_EQ(itemsOf(lone), (std::vector<std::string>{"k=2"}));
    tConfGroup* tail = mCONF_AddGroup(lone, "tail");
    EXPECT_EQ(lone->next, tail);
    EXPECT_EQ(mCONF_GetGroup(lone, "tail"), tail);
    mCONF_Free(lone);

    // Adding through a later group of a store keeps the store's order and
    // index whole.
    Store s;
    tConfGroup* a = mCONF_AddGroup(s.root, "a");
    mCONF_AddGroup(s.root, "b");
    tConfGroup* c = mCONF_AddGroup(a, "c");
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(mCONF_AddGroup(a, "b"), mCONF_GetGroup(s.root, "b"));
    EXPECT_EQ(mCONF_GetGroup(s.root, "c"), c);
    mCONF_AddGroup(s.root, "d");
    EXPECT_EQ(groupNames(s.root), (std::vector<std::string>{"", "a", "b", "c", "d"}));
    // Looking up from a later group walks from there.
    EXPECT_EQ(mCONF_GetGroup(c, "a"), nullptr);
    EXPECT_EQ(mCONF_GetGroup(a, "d"), mCONF_GetGroup(s.root, "d"));
}

// The index must give exactly what the lists say. A plain model (ordered
// vectors) is run beside the store through seeded random sets, across the
// size where groups change from scanning to hashing, "COMMAND" included.
TEST(ConfStore, IndexAgreesWithTheListsUnderRandomOperations)
{
    for (unsigned seed = 1; seed <= 6; ++seed) {
        std::mt19937 rng(seed);
        Store s;
        struct ModelItem {
            std::string key, value;
        };
        std::vector<std::pair<std::string, std::vector<ModelItem>>> model = {{"", {}}};
        auto findGroup = [&](const std::string& name) -> std::vector<ModelItem>* {
            for (auto& g : model)
                if (g.first == name)
                    return &g.second;
            return nullptr;
        };
        const int groups = 1 + static_cast<int>(rng() % 40);
        const int keys = 1 + static_cast<int>(rng() % 300);
        for (int op = 0; op < 4000; ++op) {
            const unsigned pick = rng() % 10;
            const std::string name = pick == 0 ? "" : pick == 1 ? "COMMAND" : "g" + std::to_string(rng() % groups);
            const std::string key = "k" + std::to_string(rng() % keys);
            const std::string value = "v" + std::to_string(op);
            ASSERT_NE(mCONF_SetValue(s.root, name.c_str(), key.c_str(), value.c_str(), nullptr), nullptr);
            std::vector<ModelItem>* g = findGroup(name);
            if (g == nullptr) {
                model.push_back({name, {}});
                g = &model.back().second;
            }
            bool updated = false;
            if (name != "COMMAND") {
                for (ModelItem& it : *g)
                    if (it.key == key) {
                        it.value = value;
                        updated = true;
                        break;
                    }
            }
            if (!updated)
                g->push_back({key, value});
        }
        // Lists: same groups, same items, same order.
        std::vector<std::string> names;
        for (auto& g : model)
            names.push_back(g.first);
        ASSERT_EQ(groupNames(s.root), names) << "seed " << seed;
        for (auto& g : model) {
            std::vector<std::string> items;
            for (auto& it : g.second)
                items.push_back(it.key + "=" + it.value);
            ASSERT_EQ(itemsOf(mCONF_GetGroup(s.root, g.first.c_str())), items) << "seed " << seed << " " << g.first;
            // Lookups: the first item of each key, null for absent ones.
            for (int k = 0; k < keys + 3; ++k) {
                const std::string key = "k" + std::to_string(k);
                const char* expected = nullptr;
                for (auto& it : g.second)
                    if (it.key == key) {
                        expected = it.value.c_str();
                        break;
                    }
                const char* got = mCONF_GetValue(s.root, g.first.c_str(), key.c_str());
                if (expected == nullptr) {
                    EXPECT_EQ(got, nullptr) << key;
                } else {
                    EXPECT_STREQ(got, expected) << key;
                }
            }
        }
    }
}

TEST(ConfStore, LargeGroupAndManyGroups)
{
    Store s;
    const int n = 50000;
    for (int i = 0; i < n; ++i) {
        const std::string k = "key" + std::to_string(i);
        ASSERT_NE(mCONF_SetValue(s.root, "big", k.c_str(), "x", nullptr), nullptr);
        const std::string g = "grp" + std::to_string(i);
        ASSERT_NE(mCONF_SetValue(s.root, g.c_str(), "k", k.c_str(), nullptr), nullptr);
    }
    for (int i = 0; i < n; i += 997) {
        const std::string k = "key" + std::to_string(i);
        mCONF_SetValue(s.root, "big", k.c_str(), "y", nullptr);
        EXPECT_STREQ(mCONF_GetValue(s.root, "big", k.c_str()), "y");
        const std::string g = "grp" + std::to_string(i);
        EXPECT_STREQ(mCONF_GetValue(s.root, g.c_str(), "k"), k.c_str());
    }
    size_t count = 0;
    for (tConfItem* it = mCONF_GetGroup(s.root, "big")->items; it != nullptr; it = it->next)
        ++count;
    EXPECT_EQ(count, static_cast<size_t>(n));
    EXPECT_EQ(groupNames(s.root).size(), static_cast<size_t>(n) + 2);
}

} // namespace
