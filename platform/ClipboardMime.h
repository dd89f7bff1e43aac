#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

// How the MIME types that programs offer on the desktop's clipboard are presented as
// clipboard formats, and the conversions between the two forms of each.
namespace velmora::clipboardmime {

enum class Presented {
  Text,      // formats 1 and 13: text/plain in any charset, UTF8_STRING, STRING, TEXT
  Html,      // "HTML Format": text/html
  Image,     // format 2: image/png and every other image/*
  FileList,  // format 15: text/uri-list, when it names at least one local file
  RichText,  // "Rich Text Format": text/rtf, application/rtf, text/richtext
  Named,     // a registered format named by the MIME type itself
  Hidden,    // a target of the selection protocol (TARGETS, MULTIPLE, ...), not data
};
Presented classify(const QString& mimeType);

// MIME types in which browsers offer the address of the page the HTML was copied from, in
// the order they are asked.
QStringList sourceUrlTypes();

// The text of an offered text/html: UTF-16 when it starts with a UTF-16 byte-order mark
// (as Firefox offers it), else UTF-8 (a UTF-8 mark is dropped); NULs at the end dropped.
QString decodeHtml(const QByteArray& bytes);
// The page address in a source-URL target (UTF-8, or UTF-16 with a mark or in the
// little-endian form Firefox writes): its first line; "" when there is none.
QString decodeSourceUrl(const QByteArray& bytes);

// The "HTML Format" block for HTML offered on the desktop: the header lines Version,
// StartHTML, EndHTML, StartFragment, EndFragment (10-digit byte offsets into the UTF-8
// block) and SourceURL (when known), then the HTML with the fragment markers.
//  - HTML that already carries "<!--StartFragment-->" and "<!--EndFragment-->" keeps them;
//  - a whole document (it has a body tag) is kept whole, head and style sheets included, and
//    the markers enclose the content of its body;
//  - a fragment, as browsers offer it, is wrapped in "<html><body>" ... "</body></html>".
// A charset declaration that browsers put in front of their HTML is dropped: the block is
// UTF-8 by definition.
QByteArray htmlFormatBlock(const QString& html, const QString& sourceUrl);
// The HTML of an "HTML Format" block: the bytes from StartHTML to EndHTML (to the end when
// EndHTML is missing). When StartHTML lies outside the block, the bytes after the header
// lines; a block without a header is all HTML.
QByteArray htmlOfHtmlFormatBlock(const QByteArray& block);

// The local paths a text/uri-list names: lines split at LF with CR trimmed, comment lines
// ('#') skipped, only file: URIs on this host (no host or "localhost"), percent-decoding
// applied (UTF-8). Other URIs and malformed lines are skipped.
QStringList localFilesOfUriList(const QByteArray& uriList);
QByteArray uriListOfFiles(const QStringList& paths);

}  // namespace velmora::clipboardmime
