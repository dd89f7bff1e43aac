#include "support/RegistryStore.h"
#include "support/clsRegistry.h"
#include "tests/common/Helpers.h"

#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace velmora {
namespace {

using test::errorOf;

constexpr uint32_t kUser = registryroot::CurrentUser;

class Registry : public testing::Test {
 protected:
  QString folder() const { return dir.path() + "/run/registry"; }
  clsRegistry registryAt(const QString& path, const QString& name = "Item") {
    clsRegistry registry(folder());
    registry.setSectionKey(path);
    registry.setValueKey(name);
    return registry;
  }
  QTemporaryDir dir;
};

// Written under one spelling, read under another.
TEST_F(Registry, ValuesReadBackWithTheTypeKept) {
  test::ScopedEnvironment temp("TEMP", "/tmp/user");
  const struct {
    uint32_t type;
    QVariant written;
    uint32_t typeRead;
    QVariant read;
  } cases[] = {
      {1, "abc", 1, "abc"},   {1, "%TEMP%\\x", 2, "/tmp/user\\x"},
      {2, "100%", 1, "100%"}, {1, "%NO_SUCH_NAME_HERE%%TEMP%", 2, "%NO_SUCH_NAME_HERE%/tmp/user"},
      {4, 100, 4, 100},       {4, -1, 4, -1},
      {5, 7.0, 4, 7},         {3, QByteArray("\0\x01\xff", 3), 3, QByteArray("\0\x01\xff", 3)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.written.toString().toStdString());
    clsRegistry registry = registryAt("Software\\Velmora\\Test");
    registry.setValueType(c.type);
    registry.setValue(c.written);
    EXPECT_EQ(registry.ValueEx(kUser, "SOFTWARE\\velmora\\TEST\\", "ITEM", 0, "missing"), c.read);
    EXPECT_EQ(registry.ValueType(), c.typeRead);
  }
  EXPECT_EQ(registryAt("software").EnumerateSections(), QStringList{"Velmora"}) << "the first spelling is kept";
}

TEST_F(Registry, WhatCannotBeReadGivesDefaultAndLeavesValueType) {
  RegistryStore store(folder());
  ASSERT_TRUE(store.writeValue(kUser, "Lists", "", {registrytype::StringList, QStringList{"a", "b"}}));
  clsRegistry registry = registryAt("Lists", "");
  EXPECT_EQ(registry.Value(), QString::fromLatin1("a\0b", 3)) << "a list reads as its items joined by NUL";
  registry.setValueType(3);
  registry.setDefault("none");
  const std::tuple<QString, QString, QString> unreadable[] = {
      {"Lists", "absent", ""}, {"Absent", "", ""}, {"Lists\\\\Bad", "", ""}, {"Lists", "", "server"}};
  for (const auto& [path, name, machine] : unreadable) {
    registry.setMachine(machine);
    EXPECT_EQ(registry.ValueEx(kUser, path, name, 3, "none"), "none") << path << " " << name << " " << machine;
    EXPECT_EQ(registry.ValueType(), 3u);
  }
  EXPECT_EQ(registry.Machine(), "\\\\server");
}

TEST_F(Registry, FailuresRaiseTheirErrors) {
  ASSERT_TRUE(RegistryStore(folder()).createKey(kUser, "Present"));
  const auto setAs = [&](uint32_t type, QVariant value, QString machine = "") {
    return [=, this] {
      clsRegistry registry = registryAt("Present");
      registry.setMachine(machine);
      registry.setValueType(type);
      registry.setValue(value);
    };
  };
  const auto onKey = [&](QString path, void (clsRegistry::*method)()) {
    return [=, this] {
      clsRegistry registry = registryAt(path, "Item");
      (registry.*method)();
    };
  };
  const auto mismatch = [](int type, QString wanted) {
    return QString("Type mismatch: registry value type %1 takes %2").arg(type).arg(wanted);
  };
  const QString number = "a whole number from -2147483648 to 2147483647";
  const struct {
    std::function<void()> call;
    long number;
    QString description;
  } cases[] = {
      {setAs(3, "text"), 13, mismatch(3, "a byte array")},
      {setAs(4, "12"), 13, mismatch(4, number)},
      {setAs(5, 2.5), 13, mismatch(5, number)},
      {setAs(4, 3e9), 13, mismatch(4, number)},
      {setAs(7, "a"), 26001,
       "Failed to set registry value Key: '2147483649',Section: 'Present',Key: 'Item' to value: 'a'"},
      {setAs(1, "a", "server"), 26001,
       "Failed to set registry value Key: '2147483649',Section: 'Present',Key: 'Item' to value: 'a'"},
      {onKey("A\\\\B", &clsRegistry::CreateKey), 26001, "Failed to create registry Key: 'A\\\\B"},
      {onKey("Absent", &clsRegistry::DeleteKey), 26001, "Failed to delete registry Key: '2147483649',Section: 'Absent"},
      {onKey("Absent", &clsRegistry::DeleteValue), 26001,
       "Failed to open key '2147483649',Section: 'Absent' for delete access"},
      {onKey("Present", &clsRegistry::DeleteValue), 26001,
       "Failed to delete registry Key: '2147483649',Section: 'Present',Key: 'Item"},
  };
  for (const auto& c : cases) {
    const ScriptError error = errorOf(c.call);
    EXPECT_EQ(error.number(), c.number) << c.description;
    EXPECT_EQ(error.description(), c.description);
    EXPECT_EQ(error.source(), "velmora.cRegistry");
  }
}

TEST_F(Registry, DeleteKeyTakesItsSubkeysAlong) {
  clsRegistry registry = registryAt("App\\Inner\\Deep");
  registry.setValue("v");
  registry.setSectionKey("App");
  registry.CreateKey();
  EXPECT_EQ(registry.EnumerateSections(), QStringList{"Inner"});
  registry.setSectionKey("app\\INNER\\deep");
  EXPECT_EQ(registry.EnumerateValues(), QStringList{"Item"});
  registry.DeleteValue();
  EXPECT_TRUE(registry.EnumerateValues().isEmpty());
  registry.setSectionKey("APP");
  registry.DeleteKey();
  EXPECT_FALSE(registry.KeyExists());
  EXPECT_FALSE(RegistryStore(folder()).keyExists(kUser, "App\\Inner\\Deep"));
}

// The file is private to its user, and a damaged one is replaced by the next write.
TEST_F(Registry, DamagedFileReadsEmptyAndIsReplacedPrivately) {
  clsRegistry registry = registryAt("Key");
  registry.setValue("before");
  const QString file = RegistryStore(folder()).filePath();
  const std::pair<QString, unsigned> modes[] = {{dir.path() + "/run", 0700}, {folder(), 0700}, {file, 0600}};
  for (const auto& [path, mode] : modes) {
    struct stat info {};
    ASSERT_EQ(stat(path.toLocal8Bit().constData(), &info), 0) << path;
    EXPECT_EQ(info.st_mode & 0777, mode) << path;
  }
  QFile damaged(file);
  ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
  damaged.write("{\"HKEY_CURRENT_USER\": {\"keys\": [tor");
  damaged.close();
  registry.setDefault("empty");
  EXPECT_EQ(registry.Value(), "empty");
  EXPECT_TRUE(registry.EnumerateSections().isEmpty());
  registry.setValue("after");
  EXPECT_EQ(registry.Value(), "after");
}

// Each writer holds a store of its own on the same folder, as another process would.
TEST_F(Registry, ConcurrentWritersLoseNoValue) {
  constexpr int kWriters = 4, kValues = 200;
  std::vector<std::thread> writers;
  for (int w = 0; w < kWriters; ++w)
    writers.emplace_back([this, w] {
      RegistryStore store(folder());
      for (int v = 0; v < kValues; ++v)
        EXPECT_TRUE(store.writeValue(kUser, "Load", QString("w%1v%2").arg(w).arg(v), {4, quint32(w * 1000 + v)}));
    });
  for (std::thread& writer : writers) writer.join();
  const RegistryStore store(folder());
  EXPECT_EQ(store.valueNames(kUser, "Load").size(), kWriters * kValues);
  for (int w = 0; w < kWriters; ++w)
    for (int v = 0; v < kValues; ++v) {
      const std::optional<RegistryValue> value = store.readValue(kUser, "Load", QString("W%1V%2").arg(w).arg(v));
      ASSERT_TRUE(value) << w << " " << v;
      EXPECT_EQ(value->data.toUInt(), quint32(w * 1000 + v));
    }
}

}  // namespace
}  // namespace velmora
