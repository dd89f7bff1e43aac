#pragma once
#include <QSet>
#include <QString>

#include "core/Result.h"

namespace velmora {

// LibreOffice writes the pictures of a page it saves directly beside it, named after it
// (page base name + "_html_" + ...); the pages the clean-up and the upload expect keep them
// in a companion folder. This gathers a saved page's own pictures into such a folder and
// points the page's img tags at them; a src naming anything else (a linked picture's
// outside address) is left as it is, so the upload never takes it for one of the page's
// own pictures.
class CompanionFolder {
 public:
  // `savedPage`: the page LibreOffice wrote; `companion`: the folder's path, beside the
  // page that will refer to it.
  CompanionFolder(const QString& savedPage, const QString& companion);

  // Empties the folder (a picture of an earlier call is never taken for this call's).
  Outcome prepare() const;
  // `html` with each img src that names one of the saved page's pictures copied into the
  // folder and pointing there, relative to the folder's parent.
  QString gather(const QString& html);
  // Removes the saved page's pictures from beside it, once every page has gathered them.
  void dropOriginals() const;

 private:
  QString ownPictureName(const QString& src) const;

  QString folder_;  // where the saved page and its pictures are, with a final "/"
  QString base_;    // the saved page's base name
  QString companionName_;
  QSet<QString> taken_;
};

}  // namespace velmora
