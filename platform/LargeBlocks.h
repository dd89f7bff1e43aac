#pragma once

namespace velmora {

// The clean-up passes allocate and free a text as large as the page (a 10 MB page is 20 MB
// of UTF-16) once per rule. By default glibc maps every block above 128 KB afresh and
// gives it back when freed, so each pass also pays for the system zeroing 20 MB of new
// pages: up to a third of the time of a large clean-up. Hosts call this once at start so that
// blocks up to 32 MB come from the heap, which keeps up to 128 MB of freed memory for
// reuse. A process-wide choice, so the library never makes it on its own.
void KeepLargeBlocksForReuse();

}  // namespace velmora
