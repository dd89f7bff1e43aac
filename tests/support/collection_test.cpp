#include <gtest/gtest.h>

#include <QFile>
#include <functional>

#include "core/ScriptError.h"
#include "support/clsCollection.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

// The error number a call raises, or 0 when it raises nothing.
long errorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const ScriptError& error) {
    return error.number();
  }
  return 0;
}

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

TEST(Collection, StartsEmptyWithBinaryCompare) {
  clsCollection c;
  EXPECT_EQ(c.Count(), 0);
  EXPECT_EQ(c.Lower(), 1);
  EXPECT_EQ(c.Compare(), 0);
  EXPECT_EQ(c.KeyIndex("x"), -1);
  EXPECT_EQ(c.KeyIndex(""), -1);
  EXPECT_FALSE(c.KeyExists(""));
}

TEST(Collection, KeysAndItemsReadBackByPosition) {
  clsCollection c = abc();
  EXPECT_EQ(c.Count(), 3);
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b", "c"}));
  EXPECT_EQ(keysOf(c), QStringList({"ka", "kb", "kc"}));
  EXPECT_EQ(c.KeyIndex("kb"), 2);
  c.setItem(2, "b2");
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b2", "c"}));
  EXPECT_EQ(c.key(2).toString(), "kb");
}

TEST(Collection, ADuplicateKeyRaises475AndChangesNothing) {
  clsCollection c;
  c.Add("a", "x");
  try {
    c.Add("b", "x");
    FAIL() << "no error for a key in use";
  } catch (const ScriptError& error) {
    EXPECT_EQ(error.number(), 475);
    EXPECT_EQ(error.description(), "The key is already associated with an element of this collection");
  }
  EXPECT_EQ(c.Count(), 1);
  EXPECT_EQ(c.item(1).toString(), "a");

  c.Add("b", "y");
  EXPECT_EQ(errorOf([&] { c.setKey(2, "x"); }), 475);
  EXPECT_EQ(c.key(2).toString(), "y");
  EXPECT_EQ(errorOf([&] { c.setKey(2, "y"); }), 0) << "an element may keep its own key";
  c.setKey(2, "z");
  EXPECT_EQ(c.KeyIndex("z"), 2);
}

TEST(Collection, PositionsOutsideTheElementsRaise9) {
  clsCollection c = abc();
  for (int32_t bad : {0, -1, 4}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(errorOf([&] { c.item(bad); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.setItem(bad, "v"); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.key(bad); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.setKey(bad, "new"); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.RemoveItem(bad); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.MoveTo(bad, 1); }), errnum::SubscriptOutOfRange);
    EXPECT_EQ(errorOf([&] { c.MoveTo(1, bad); }), errnum::SubscriptOutOfRange);
  }
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b", "c"}));
  EXPECT_EQ(errorOf([] { clsCollection().item(1); }), errnum::SubscriptOutOfRange);
}

TEST(Collection, CompareModeDecidesCaseOfKeysAndItems) {
  clsCollection c;
  c.Add("Item", "x");
  EXPECT_EQ(c.KeyIndex("X"), -1);
  EXPECT_EQ(c.ItemIndex("ITEM"), -1);
  c.setCompare(clsCollection::kTextCompare);
  EXPECT_EQ(c.KeyIndex("X"), 1);
  EXPECT_EQ(c.ItemIndex("ITEM"), 1);
  EXPECT_EQ(errorOf([&] { c.Add("other", "X"); }), 475);
  c.setCompare(clsCollection::kBinaryCompare);
  c.Add("other", "X");
  EXPECT_EQ(c.KeyIndex("X"), 2);
}

TEST(Collection, KeysOfDifferentLengthNeverMatch) {
  clsCollection c;
  c.Add("1", "ab");
  c.setCompare(clsCollection::kTextCompare);
  EXPECT_EQ(c.KeyIndex("abc"), -1);
  EXPECT_EQ(c.KeyIndex("a"), -1);
  c.Add("2", "abc");
  EXPECT_EQ(c.KeyIndex("ABC"), 2);
}

TEST(Collection, MissingKeysAreEmptyAndOnlyTheFirstCanBeAdded) {
  clsCollection c;
  c.Add("first");
  EXPECT_EQ(c.key(1).toString(), "");
  EXPECT_EQ(c.KeyIndex(""), 1);
  EXPECT_EQ(errorOf([&] { c.Add("second"); }), 475) << "the empty key is a key like any other";
  EXPECT_EQ(errorOf([&] { c.Add("second", ""); }), 475);
  EXPECT_EQ(c.Count(), 1);
}

TEST(Collection, RemovingMovesLaterElementsDown) {
  clsCollection c = abc();
  c.RemoveItem(2);
  EXPECT_EQ(c.Count(), 2);
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
}

TEST(Collection, ItemSearchRaises9OnAnEmptyCollection) {
  clsCollection c;
  EXPECT_EQ(errorOf([&] { c.ItemIndex("a"); }), errnum::SubscriptOutOfRange);
  EXPECT_EQ(errorOf([&] { c.ItemExists("a"); }), errnum::SubscriptOutOfRange);
  c.Add("a", "k");
  EXPECT_TRUE(c.ItemExists("a"));
  EXPECT_FALSE(c.ItemExists("b"));
  EXPECT_EQ(c.ItemIndex("b"), -1);
}

TEST(Collection, MoveToPutsTheElementAtTheTargetPosition) {
  clsCollection c = abc();
  c.MoveTo(1, 3);
  EXPECT_EQ(itemsOf(c), QStringList({"b", "c", "a"}));
  c.MoveTo(3, 1);
  EXPECT_EQ(itemsOf(c), QStringList({"a", "b", "c"}));
  EXPECT_EQ(keysOf(c), QStringList({"ka", "kb", "kc"}));
}

TEST(Collection, SortOrdersItemsAndKeysTravelWithThem) {
  clsCollection c;
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

TEST(Collection, SavedFileReadsBackAndReplacesTheContent) {
  test::ScopedTempRoot root;
  const QString path = root.path() + "/rules.bin";
  clsCollection saved = abc();
  saved.Add(42, "number");
  saved.SaveToFile(path);

  clsCollection loaded;
  loaded.Add("old", "old");
  loaded.LoadFromFile(path);
  EXPECT_EQ(loaded.Count(), 4);
  EXPECT_EQ(keysOf(loaded), QStringList({"ka", "kb", "kc", "number"}));
  EXPECT_EQ(loaded.item(4).toInt(), 42);
}

TEST(Collection, UnreadableOrForeignFilesRaiseAndLeaveItEmpty) {
  test::ScopedTempRoot root;
  clsCollection c = abc();
  EXPECT_EQ(errorOf([&] { c.LoadFromFile(root.path() + "/missing.bin"); }), 75);
  EXPECT_EQ(c.Count(), 0);

  c = abc();
  const QString foreign = root.write("foreign.bin", "not a collection");
  EXPECT_EQ(errorOf([&] { c.LoadFromFile(foreign); }), 62);
  EXPECT_EQ(c.Count(), 0);

  const QString whole = root.path() + "/whole.bin";
  abc().SaveToFile(whole);
  QFile file(whole);
  ASSERT_TRUE(file.open(QIODevice::ReadWrite));
  file.resize(file.size() - 3);
  file.close();
  EXPECT_EQ(errorOf([&] { c.LoadFromFile(whole); }), 62);
  EXPECT_EQ(c.Count(), 0);

  EXPECT_EQ(errorOf([&] { abc().SaveToFile(root.path() + "/no/such/folder/x.bin"); }), 75);
}

}  // namespace
}  // namespace velmora
