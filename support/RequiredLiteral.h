#pragma once
#include <QString>

namespace velmora {

// The longest run of plain characters that every match of an ECMAScript pattern contains,
// in order and side by side ("margin-left:" for `(<\w+[^>]*?\sstyle=[^>]*?)margin-left:`),
// or "" when the pattern promises none. A text without that run cannot match, so the
// engine need not search it. Only the pattern's top level is read, conservatively: any
// alternation there promises nothing; groups, classes, escapes that stand for more than one
// character, anchors and quantified characters end a run.
QString RequiredLiteral(const QString& pattern);

}  // namespace velmora
