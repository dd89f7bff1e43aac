#pragma once
#include <QString>
#include <vector>

namespace velmora {

// The type library "Darrowin": the two controls, their dispatch interfaces and the upload
// control's event interface. Hosts find members here by name (without regard to case, as
// automation does), fill in omitted optional arguments and convert argument types.

enum class VarType { Void, String, Bool, Int16, Int32 };
enum class MemberKind { Method, PropertyGet, PropertyPut, Event };

struct ParamInfo {
  const char* name;
  VarType type;
  bool optional = false;
  // The value used when an optional argument is left out, as automation text ("" for an
  // optional string without a default, "true"/"false" for booleans).
  const char* defaultValue = "";
};

struct MemberInfo {
  int dispId;
  const char* name;
  MemberKind kind;
  VarType result;
  std::vector<ParamInfo> params;
  // The call starts work that goes on after it returns (an upload batch, a capture); the
  // page polls Status until it reads "ok".
  bool pollsStatus = false;
  // The call shows a window and waits for the user: hosts without a display refuse it.
  bool showsWindow = false;
  // The call reads the desktop's clipboard, which exists only with a display.
  bool usesClipboard = false;

  bool needsDisplay() const { return showsWindow || usesClipboard; }
  // Why a host without a display refuses the call.
  QString withoutDisplay() const;
};

struct InterfaceInfo {
  const char* name;
  std::vector<MemberInfo> members;
};

struct ClassInfo {
  const char* name;
  const char* clsid;
  InterfaceInfo dispatch;
  InterfaceInfo events;  // empty when the class raises none
};

struct TypeLibraryInfo {
  const char* name;
  const char* libid;
  std::vector<ClassInfo> classes;
};

const TypeLibraryInfo& typeLibrary();
// The class named `name` (without regard to case), or null.
const ClassInfo* findClass(const QString& name);
// The member of `kind` named `name` (without regard to case), or null.
const MemberInfo* findMember(const InterfaceInfo& interface, const QString& name, MemberKind kind);

}  // namespace velmora
