#include <gtest/gtest.h>

#include <QFile>

#include "support/clsCollection.h"
#include "tests/common/Helpers.h"
#include "tests/common/TestSupport.h"

namespace velmora {
namespace {

using test::errorNumberOf;

// "key=item" for each element, in order.
QString contents(const clsCollection& c) {
  QStringList elements;
  for (int32_t i = 1; i <= c.Count(); ++i) elements << c.key(i).toString() + '=' + c.item(i).toString();
  return elements.join(' ');
}

clsCollection abc() {
  clsCollection c;
  for (const QString item : {"a", "b", "c"}) c.Add(item, "k" + item);
  return c;
}

TEST(Collection, ADuplicateKeyRaises475AndChangesNothing) {
  clsCollection c;
  c.Add("a", "x");
  const ScriptError error = test::errorOf([&] { c.Add("b", "x"); });
  EXPECT_EQ(error.number(), 475);
  EXPECT_EQ(error.description(), "The key is already associated with an element of this collection");
  c.Add("b", "y");
  EXPECT_EQ(errorNumberOf([&] { c.setKey(2, "x"); }), 475);
  EXPECT_EQ(errorNumberOf([&] { c.setKey(2, "y"); }), 0) << "an element may keep its own key";
  c.setKey(2, "z");
  EXPECT_EQ(contents(c), "x=a z=b");

  // A missing key is the empty key, which only the first such element can have.
  EXPECT_EQ(clsCollection().KeyIndex(""), -1) << "an empty collection has not even the empty key";
  clsCollection unkeyed;
  unkeyed.Add("first");
  EXPECT_EQ(unkeyed.KeyIndex(""), 1);
  EXPECT_EQ(errorNumberOf([&] { unkeyed.Add("second"); }), 475);
  EXPECT_EQ(errorNumberOf([&] { unkeyed.Add("second", ""); }), 475);
  EXPECT_EQ(contents(unkeyed), "=first");
}

TEST(Collection, PositionsOutsideTheElementsRaise9) {
  clsCollection c = abc(), empty;
  for (int32_t bad : {0, -1, 4}) {
    SCOPED_TRACE(bad);
    for (const std::function<void()>& call : std::vector<std::function<void()>>{
             [&] { c.item(bad); }, [&] { c.setItem(bad, "v"); }, [&] { c.key(bad); }, [&] { c.setKey(bad, "new"); },
             [&] { c.RemoveItem(bad); }, [&] { c.MoveTo(bad, 1); }, [&] { c.MoveTo(1, bad); }})
      EXPECT_EQ(errorNumberOf(call), errnum::SubscriptOutOfRange);
  }
  EXPECT_EQ(contents(c), "ka=a kb=b kc=c");
  // So does searching the items of an empty collection.
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
  EXPECT_EQ(c.KeyIndex("abc"), -1) << "keys of different length never match";
  c.setCompare(clsCollection::kBinaryCompare);
  c.Add("other", "AB");
  EXPECT_EQ(c.KeyIndex("AB"), 2);
}

TEST(Collection, RemoveMoveAndSortKeepKeysWithTheirItems) {
  clsCollection c = abc();
  c.MoveTo(1, 3);
  EXPECT_EQ(contents(c), "kb=b kc=c ka=a");
  c.MoveTo(3, 1);
  c.RemoveItem(2);
  EXPECT_EQ(contents(c), "ka=a kc=c");
  EXPECT_EQ(c.KeyIndex("kc"), 2);
  c.RemoveAll();
  c.Add("pear", "1");
  c.Add("apple", "2");
  c.Add("fig", "3");
  c.sort(1);
  EXPECT_EQ(contents(c), "2=apple 3=fig 1=pear");
  c.sort(0);
  EXPECT_EQ(contents(c), "1=pear 3=fig 2=apple");
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
  EXPECT_EQ(contents(c), "ka=a kb=b kc=c number=42");

  QFile file(path);
  ASSERT_TRUE(file.open(QIODevice::ReadOnly));
  const std::pair<QString, long> bad[] = {{root.path() + "/missing.bin", 75},
                                          {root.write("foreign.bin", "not a collection"), 62},
                                          {root.write("cut.bin", file.readAll().chopped(3)), 62}};
  for (const auto& [badFile, number] : bad) {
    c = abc();
    EXPECT_EQ(errorNumberOf([&] { c.LoadFromFile(badFile); }), number) << badFile;
    EXPECT_EQ(c.Count(), 0);
  }
  EXPECT_EQ(errorNumberOf([&] { abc().SaveToFile(root.path() + "/no/such/folder/x.bin"); }), 75);
}

}  // namespace
}  // namespace velmora
