#pragma once
#include <sys/types.h>
#include <QString>

#include "support/RegistryStore.h"

namespace velmora {

// The printer's settings key, HKEY_LOCAL_MACHINE "SOFTWARE\VelmoraPrinter", in the registry
// store of the user whose job is printed: string values, as the user's control writes them.
class PrinterValues {
 public:
  explicit PrinterValues(const QString& storeFolder) : store_(storeFolder) {}
  // The store of the user `uid`: VELMORA_REGISTRY_DIR when set (a test's own), else where
  // that user's programs keep it, in the user's runtime folder.
  static QString folderOf(uid_t uid);

  QString get(const QString& name) const;
  void set(const QString& name, const QString& value);

 private:
  RegistryStore store_;
};

}  // namespace velmora
