#include "server/TypeLibrary.h"

namespace velmora {

namespace {

constexpr const char* kAllFiles = "所有文件(*.*)|*.*";

using K = MemberKind;
using T = VarType;

InterfaceInfo editorInterface() {
  return {"_Velmora5",
          {
              {1, "Test", K::Method, T::String, {}},
              {2, "GetExcelWorkSheetName", K::Method, T::String, {{"s_File", T::String}}},
              {3,
               "ImportExcelSheet",
               K::Method,
               T::Void,
               {{"s_File", T::String}, {"n_SheetIndex", T::Int16}, {"s_Opt", T::String}},
               true},
              {4, "PasteExcel", K::Method, T::Void, {{"s_Opt", T::String}}, true, false, /*usesClipboard=*/true},
              {5, "ImportWord", K::Method, T::Void, {{"s_File", T::String}, {"s_Opt", T::String}}, true},
              {6, "ImportPPT", K::Method, T::Void, {{"s_File", T::String}, {"s_Opt", T::String}}, true},
              {7, "PasteWord", K::Method, T::Void, {{"s_Opt", T::String}}, true, false, /*usesClipboard=*/true},
              {8, "PasteImage", K::Method, T::Void, {{"s_Opt", T::String}}, true, false, /*usesClipboard=*/true},
              {9, "PasteFileList", K::Method, T::Void, {{"s_Opt", T::String}}, true, false, /*usesClipboard=*/true},
              {10, "Capture", K::Method, T::Void, {{"s_Opt", T::String}}, true, /*showsWindow=*/true},
              {11, "LocalUpload", K::Method, T::Void, {{"s_HTML", T::String}}, true},
              {12, "GetClipboardFlag", K::Method, T::String, {}, false, false, /*usesClipboard=*/true},
              {13, "QuickFormat", K::Method, T::Void, {}, false, false, /*usesClipboard=*/true},
              {14, "GetFlashHeader", K::Method, T::String, {{"s_File", T::String}}},
              {15, "Version", K::PropertyGet, T::String, {}},
              {16, "Style", K::PropertyGet, T::String, {}},
              {17, "Body", K::PropertyGet, T::String, {}},
              {18, "OriginalFiles", K::PropertyGet, T::String, {}},
              {19, "SavedFiles", K::PropertyGet, T::String, {}},
              {20, "Status", K::PropertyGet, T::String, {}},
              {21, "Error", K::PropertyGet, T::String, {}},
              {22, "SendUrl", K::PropertyPut, T::Void, {{"value", T::String}}},
              {23, "Lang", K::PropertyPut, T::Void, {{"value", T::String}}},
              {24, "Charset", K::PropertyPut, T::Void, {{"value", T::String}}},
              {25, "LocalSize", K::PropertyPut, T::Void, {{"value", T::String}}},
              {26, "LocalExt", K::PropertyPut, T::Void, {{"value", T::String}}},
              {27,
               "DialogOpen",
               K::Method,
               T::String,
               {{"b_FileMustExist", T::Bool, true, "true"},
                {"b_MultiSelect", T::Bool, true, "false"},
                {"s_Filter", T::String, true, kAllFiles},
                {"l_FilterIndex", T::Int32, true, "1"},
                {"s_InitDir", T::String, true},
                {"s_DlgTitle", T::String, true}},
               false,
               /*showsWindow=*/true},
              {28,
               "DialogSave",
               K::Method,
               T::String,
               {{"b_OverWritePrompt", T::Bool, true, "true"},
                {"s_Filter", T::String, true, kAllFiles},
                {"l_FilterIndex", T::Int32, true, "1"},
                {"s_InitDir", T::String, true},
                {"s_DlgTitle", T::String, true},
                {"s_DefaultExt", T::String, true}},
               false,
               /*showsWindow=*/true},
              {29, "IsPrinterExist", K::Method, T::Bool, {}},
          }};
}

InterfaceInfo uploadInterface() {
  return {"_VelmoraMFU5",
          {
              {1, "SendUrl", K::PropertyPut, T::Void, {{"value", T::String}}},
              {2, "BlockSize", K::PropertyPut, T::Void, {{"value", T::String}}},
              {3, "AllowSize", K::PropertyPut, T::Void, {{"value", T::String}}},
              {4, "AllowExt", K::PropertyPut, T::Void, {{"value", T::String}}},
              {5, "FileType", K::PropertyPut, T::Void, {{"value", T::String}}},
              {6, "Lang", K::PropertyPut, T::Void, {{"value", T::String}}},
              {7, "Charset", K::PropertyPut, T::Void, {{"value", T::String}}},
              {8, "MultiFile", K::PropertyPut, T::Void, {{"value", T::String}}},
              {9, "Version", K::PropertyGet, T::String, {}},
          }};
}

InterfaceInfo uploadEvents() {
  return {"__VelmoraMFU5",
          {
              {1, "OnCancel", K::Event, T::Void, {{"s_Flag", T::String}}},
              {2, "OnUpload", K::Event, T::Void, {{"s_Flag", T::String}, {"s_Value", T::String}}},
          }};
}

}  // namespace

const TypeLibraryInfo& typeLibrary() {
  static const TypeLibraryInfo library{
      "Darrowin",
      "{5E0B6A1C-3D2F-4B7A-9C8E-1F2A3B4C5D60}",
      {
          {"Velmora5", "{5E0B6A1C-3D2F-4B7A-9C8E-1F2A3B4C5D61}", editorInterface(), {"", {}}},
          {"VelmoraMFU5", "{5E0B6A1C-3D2F-4B7A-9C8E-1F2A3B4C5D62}", uploadInterface(), uploadEvents()},
      }};
  return library;
}

const ClassInfo* findClass(const QString& name) {
  for (const ClassInfo& cls : typeLibrary().classes)
    if (name.compare(QLatin1String(cls.name), Qt::CaseInsensitive) == 0) return &cls;
  return nullptr;
}

const MemberInfo* findMember(const InterfaceInfo& interface, const QString& name, MemberKind kind) {
  for (const MemberInfo& member : interface.members)
    if (member.kind == kind && name.compare(QString::fromUtf8(member.name), Qt::CaseInsensitive) == 0) return &member;
  return nullptr;
}

QString MemberInfo::withoutDisplay() const {
  return QStringLiteral("%1 %2, and there is no desktop display here: run it in a desktop session, or on a virtual "
                        "X server (Xvfb)")
      .arg(QString::fromUtf8(name),
           showsWindow ? QStringLiteral("shows a window") : QStringLiteral("reads the clipboard"));
}

}  // namespace velmora
