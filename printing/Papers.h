#pragma once
#include <QSize>
#include <QString>

namespace velmora {

// The papers the virtual printer offers by name: its description lists them, and a form is
// found among them by name or by size.
struct NamedPaper {
  const char* name;
  QSize size;  // thousandths of a millimetre
};

inline const NamedPaper kNamedPapers[] = {
    {"A4", {210000, 297000}},     {"A3", {297000, 420000}},    {"A5", {148000, 210000}},
    {"Letter", {215900, 279400}}, {"Legal", {215900, 355600}}, {"Executive", {184150, 266700}},
};

}  // namespace velmora
