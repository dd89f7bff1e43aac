#pragma once
#include <QString>

#include "core/Result.h"

namespace velmora {

// LibreOffice saves a document as a web page in its own way; the Word clean-up and the
// upload expect the page the word processor writes. This turns the first into the second,
// in place:
// - the pictures LibreOffice wrote beside the page move into the companion folder
//   (page base name + "_files", see CompanionFolder);
// - the style element is the plain <style> with its text in a comment;
// - the @page rule names its section and gives the page size and the four margins
//   (top right bottom left) in points.
// A page that cannot be read or written back: "ReadFile:" and why.
Outcome shapeAsWordPage(const QString& pagePath);

}  // namespace velmora
