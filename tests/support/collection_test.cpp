#include <gtest/gtest.h>

#include <QFile>

#include "support/clsCollection.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

using test::errorNumberOf;

QStringList itemsOf(const clsCollection& c) {
  QStringList items;
  for (int32_t i = 1; i <= c.Count(); ++i) items << c.item(i).toString();
  return items;
}

QStringList keysOf(const clsCollection& c) {
  QStringList keys;
  for (int32_t i = 1; i <= c.Count(); ++i) keys << c.key(i).toString();
  return keys;
}

clsCollection abc() {
  clsCollection c;
  c.Add("a", "ka");
  c.Add("b", "kb");
  c.Add("c", "kc");
  return c;
}

TEST(Collection, KeysAndItemsReadBackByPosition) {
  EXPECT_EQ(clsCollection().KeyIndex(""), -1) << "an empty collection has not even the empty key";
  clsCollection c = abc();
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b", "c"}));
  EXPECT_EQ(keysOf(c), QStringList({"ka", "kb", "kc"}));
  EXPECT_EQ(c.KeyIndex("kb"), 2);
  EXPECT_EQ(c.KeyIndex("x"), -1);
  c.setItem(2, "b2");
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b2", "c"}));
  EXPECT_EQ(c.key(2).toString(), "kb");
}

TEST(Collection, ADuplicateKeyRaises475AndChangesNothing) {
  clsCollection c;
  c.Add("a", "x");
  const ScriptError error = test::errorOf([&] { c.Add("b", "x"); });
  EXPECT_EQ(error.number(), 475);
  EXPECT_EQ(error.description(), "The key is already associated with an element of this collection");
  EXPECT_EQ(itemsOf(c), QStringList{"a"});

  c.Add("b", "y");
  EXPECT_EQ(errorNumberOf([&] { c.setKey(2, "x"); }), 475);
  EXPECT_EQ(c.key(2).toString(), "y");
  EXPECT_EQ(errorNumberOf([&] { c.setKey(2, "y"); }), 0) << "an element may keep its own key";
  c.setKey(2, "z");
  EXPECT_EQ(c.KeyIndex("z"), 2);

  // A missing key is the empty key, which only the first such element can have.
  clsCollection unkeyed;
  unkeyed.Add("first");
  EXPECT_EQ(unkeyed.key(1).toString(), "");
  EXPECT_EQ(unkeyed.KeyIndex(""), 1);
  EXPECT_EQ(errorNumberOf([&] { unkeyed.Add("second"); }), 475);
  EXPECT_EQ(errorNumberOf([&] { unkeyed.Add("second", ""); }), 475);
  EXPECT_EQ(unkeyed.Count(), 1);
}

TEST(Collection, PositionsOutsideTheElementsRaise9) {
  clsCollection c = abc();
  for (int32_t bad : {0, -1, 4}) {
    SCOPED_TRACE(bad);
    for (const std::function<void()>& call : std::vector<std::function<void()>>{
             [&] { c.item(bad); }, [&] { c.setItem(bad, "v"); }, [&] { c.key(bad); }, [&] { c.setKey(bad, "new"); },
             [&] { c.RemoveItem(bad); }, [&] { c.MoveTo(bad, 1); }, [&] { c.MoveTo(1, bad); }})
      EXPECT_EQ(errorNumberOf(call), errnum::SubscriptOutOfRange);
  }
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b", "c"}));
  EXPECT_EQ(errorNumberOf([] { clsCollection().item(1); }), errnum::SubscriptOutOfRange);
  // So does searching the items of an empty collection.
  clsCollection empty;
  EXPECT_EQ(errorNumberOf([&] { empty.ItemIndex("a"); }), errnum::SubscriptOutOfRange);
  EXPECT_EQ(errorNumberOf([&] { empty.ItemExists("a"); }), errnum::SubscriptOutOfRange);
  EXPECT_TRUE(c.ItemExists("b"));
  EXPECT_FALSE(c.ItemExists("d"));
  EXPECT_EQ(c.ItemIndex("d"), -1);
}

TEST(Collection, CompareModeDecidesCaseOfKeysAndItems) {
  clsCollection c;
  c.Add("Item", "ab");
  EXPECT_EQ(c.KeyIndex("AB"), -1);
  EXPECT_EQ(c.ItemIndex("ITEM"), -1);
  c.setCompare(clsCollection::kTextCompare);
  EXPECT_EQ(c.KeyIndex("AB"), 1);
  EXPECT_EQ(c.ItemIndex("ITEM"), 1);
  EXPECT_EQ(errorNumberOf([&] { c.Add("other", "Ab"); }), 475);
  // Keys of different length never match.
  EXPECT_EQ(c.KeyIndex("abc"), -1);
  EXPECT_EQ(c.KeyIndex("a"), -1);
  c.Add("2", "abc");
  EXPECT_EQ(c.KeyIndex("ABC"), 2);
  c.setCompare(clsCollection::kBinaryCompare);
  c.Add("other", "AB");
  EXPECT_EQ(c.KeyIndex("AB"), 3);
}

TEST(Collection, RemoveMoveAndSortKeepKeysWithTheirItems) {
  clsCollection c = abc();
  c.MoveTo(1, 3);
  EXPECT_EQ(itemsOf(c), QStringList({"b", "c", "a"}));
  c.MoveTo(3, 1);
  EXPECT_EQ(keysOf(c), QStringList({"ka", "kb", "kc"}));
  c.RemoveItem(2);
  EXPECT_EQ(itemsOf(c), QStringList({"a", "c"}));
  EXPECT_EQ(c.KeyIndex("kc"), 2);
  EXPECT_FALSE(c.KeyExists("kb"));
  c.RemoveItem(1);
  c.RemoveItem(1);
  EXPECT_EQ(c.Count(), 0);
  c.Add("again", "ka");
  EXPECT_EQ(c.KeyIndex("ka"), 1);
  c.RemoveAll();
  EXPECT_EQ(c.Count(), 0);

  c.Add("pear", "1");
  c.Add("apple", "2");
  c.Add("fig", "3");
  c.sort(1);
  EXPECT_EQ(itemsOf(c), QStringList({"apple", "fig", "pear"}));
  EXPECT_EQ(keysOf(c), QStringList({"2", "3", "1"}));
  c.sort(0);
  EXPECT_EQ(itemsOf(c), QStringList({"pear", "fig", "apple"}));
  EXPECT_EQ(keysOf(c), QStringList({"1", "3", "2"}));
}

TEST(Collection, FilesReadBackAndBadFilesRaiseAndLeaveItEmpty) {
  test::ScopedTempRoot root;
  const QString path = root.path() + "/rules.bin";
  clsCollection saved = abc();
  saved.Add(42, "number");
  saved.SaveToFile(path);
  clsCollection c;
  c.Add("old", "old");
  c.LoadFromFile(path);
  EXPECT_EQ(keysOf(c), QStringList({"ka", "kb", "kc", "number"}));
  EXPECT_EQ(c.item(4).toInt(), 42);

  EXPECT_EQ(errorNumberOf([&] { c.LoadFromFile(root.path() + "/missing.bin"); }), 75);
  EXPECT_EQ(c.Count(), 0);
  c = abc();
  EXPECT_EQ(errorNumberOf([&] { c.LoadFromFile(root.write("foreign.bin", "not a collection")); }), 62);
  EXPECT_EQ(c.Count(), 0);
  c = abc();
  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::ReadWrite));
  file.resize(file.size() - 3);
  file.close();
  EXPECT_EQ(errorNumberOf([&] { c.LoadFromFile(path); }), 62);
  EXPECT_EQ(c.Count(), 0);
  EXPECT_EQ(errorNumberOf([&] { abc().SaveToFile(root.path() + "/no/such/folder/x.bin"); }), 75);
}

}  // namespace
}  // namespace velmora
