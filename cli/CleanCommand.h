#pragma once
#include <QStringList>

namespace velmora::cli {

// velmora clean --engine word|excel|wps-word|wps-excel [--source import|paste]
//               [--opt OPTIONS] [--extra-css FILE] [--trace]
//               [--style-out FILE --body-out FILE] FILE
// Runs one clean-up pipeline over an HTML file (of any encoding the text reader detects)
// and prints Style and Body as JSON, or writes them to the two files given. With --trace
// the JSON also lists each rule that changed the text and by how many characters.
int runClean(const QStringList& arguments);

}  // namespace velmora::cli
