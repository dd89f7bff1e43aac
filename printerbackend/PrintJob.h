#pragma once
#include <sys/types.h>
#include <QString>

namespace velmora {

// What the user's control asked of the printer for this job, read from the printer's
// settings key before the job starts.
struct PrintSettings {
  QString fileFormat;    // "jpg", "png" or "gif" (a palette of up to 256 colours)
  int jpgQuality = 100;  // 1..100
  QString path;          // the folder the pictures go in, ending with a separator
  QString fileName;      // the pictures' base name
};

// Why these settings cannot be followed, or "" when they can. The pictures go only into a
// working folder of the user who printed: the folder "Velmora" (the user's own, private,
// not a link) or one plain folder inside it, whatever `path` says; the base name is a
// plain name; the type one of the three.
QString settingsRefusal(const PrintSettings& settings, uid_t user);

struct PrintedJob {
  int pages = 0;
  int files = 0;
  QString failure;  // why the document could not be read, or ""
};

// Draws each page of the PDF `document` at 150 dots per inch and saves page i (from 1) as
// path + file name + "_" + i + "." + type; the pages are encoded on the other cores while
// the next ones are drawn.
PrintedJob printPages(const QString& document, const PrintSettings& settings);

}  // namespace velmora
