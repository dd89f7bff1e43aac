#pragma once
#include <QString>
#include <cstdint>

namespace velmora {

// The answers a browser gets when it asks whether a control may be scripted and
// initialised from page data. Both controls give the same answers.
namespace hresult {
constexpr uint32_t S_OK = 0;
constexpr uint32_t E_NOINTERFACE = 0x80004002;
constexpr uint32_t E_FAIL = 0x80004005;
}  // namespace hresult

namespace safety {
constexpr uint32_t SafeForUntrustedCaller = 1;
constexpr uint32_t SafeForUntrustedData = 2;
}  // namespace safety

namespace iid {
inline const QString IDispatch = QStringLiteral("{00020400-0000-0000-C000-000000000046}");
inline const QString IDispatchEx = QStringLiteral("{A6EF9860-C720-11D0-9337-00A0C90DCAA9}");
inline const QString IPersistStorage = QStringLiteral("{0000010A-0000-0000-C000-000000000046}");
inline const QString IPersistStream = QStringLiteral("{00000109-0000-0000-C000-000000000046}");
inline const QString IPersistPropertyBag = QStringLiteral("{37D84F60-42CB-11CE-8135-00AA004BB851}");
}  // namespace iid

class ObjectSafety {
 public:
  uint32_t GetInterfaceSafetyOptions(const QString& interfaceId, uint32_t& supported, uint32_t& enabled) const;
  uint32_t SetInterfaceSafetyOptions(const QString& interfaceId, uint32_t optionMask, uint32_t enabledOptions) const;

  // Both flags are set when the component is loaded and never change.
  bool safeForScripting = true;
  bool safeForInitializing = true;
};

}  // namespace velmora
