#include "server/ObjectSafety.h"

namespace velmora {

namespace {
enum class Family { Dispatch, Persistence, Other };

Family familyOf(const QString& interfaceId) {
  const QString id = interfaceId.toUpper();
  if (id == iid::IDispatch || id == iid::IDispatchEx) return Family::Dispatch;
  if (id == iid::IPersistStorage || id == iid::IPersistStream || id == iid::IPersistPropertyBag)
    return Family::Persistence;
  return Family::Other;
}
}  // namespace

uint32_t ObjectSafety::GetInterfaceSafetyOptions(const QString& interfaceId, uint32_t& supported,
                                                 uint32_t& enabled) const {
  supported = safety::SafeForUntrustedCaller | safety::SafeForUntrustedData;
  switch (familyOf(interfaceId)) {
    case Family::Dispatch: enabled = safeForScripting ? safety::SafeForUntrustedCaller : 0; return hresult::S_OK;
    case Family::Persistence: enabled = safeForInitializing ? safety::SafeForUntrustedData : 0; return hresult::S_OK;
    case Family::Other: break;
  }
  return hresult::E_NOINTERFACE;
}

uint32_t ObjectSafety::SetInterfaceSafetyOptions(const QString& interfaceId, uint32_t optionMask,
                                                 uint32_t enabledOptions) const {
  const uint32_t asked = optionMask & enabledOptions;
  switch (familyOf(interfaceId)) {
    case Family::Dispatch:
      return asked == safety::SafeForUntrustedCaller && safeForScripting ? hresult::S_OK : hresult::E_FAIL;
    case Family::Persistence:
      return asked == safety::SafeForUntrustedData && safeForInitializing ? hresult::S_OK : hresult::E_FAIL;
    case Family::Other: break;
  }
  return hresult::E_NOINTERFACE;
}

}  // namespace velmora
