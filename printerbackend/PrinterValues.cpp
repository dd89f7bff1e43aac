#include "printerbackend/PrinterValues.h"

namespace velmora {

namespace {

const QString kPrinterKey = QStringLiteral("SOFTWARE\\VelmoraPrinter");

}  // namespace

QString PrinterValues::folderOf(uid_t uid) {
  if (qEnvironmentVariableIsSet("VELMORA_REGISTRY_DIR")) return qEnvironmentVariable("VELMORA_REGISTRY_DIR");
  return QStringLiteral("/run/user/%1/velmora/registry").arg(uid);
}

QString PrinterValues::get(const QString& name) const {
  const std::optional<RegistryValue> value = store_.readValue(registryroot::LocalMachine, kPrinterKey, name);
  if (!value) return {};
  const QString text = value->data.toString();
  return text.left(text.indexOf(QChar(0)));  // a value is read up to its first NUL
}

void PrinterValues::set(const QString& name, const QString& value) {
  // The control waits for "end" and stops at its own limits: a value that cannot be written
  // leaves nothing else to do than to go on.
  (void)store_.writeValue(registryroot::LocalMachine, kPrinterKey, name, {registrytype::String, value});
}

}  // namespace velmora
