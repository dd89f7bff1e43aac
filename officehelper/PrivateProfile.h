#pragma once
#include <QString>

#include "core/Result.h"

namespace velmora {

// Writes the settings of the helper's own LibreOffice profile into `folder` (created when
// missing). The profile is the helper's alone, so a LibreOffice the user has open is never
// touched or blocked, and these settings are written again at every start, so they always
// hold: macros never run; links are never updated and linked pictures never fetched; no
// lock file, backup, recovery file or recent-documents entry is written next to anything;
// page pictures carry no on-screen marks; a saved page names outside files by absolute
// address, never by a relative path that could be read as one of its own pictures.
Outcome writePrivateProfile(const QString& folder);

}  // namespace velmora
