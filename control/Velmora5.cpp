#include "control/Velmora5.h"

#include <QCoreApplication>

#include "Version.h"
#include "clipboard/basClipBoard.h"
#include "clipboard/clsClipboard.h"
#include "clipboard/clsFileList.h"
#include "core/Aside.h"
#include "core/OptionString.h"
#include "core/ScriptError.h"
#include "dialogs/clsCommonDialog.h"
#include "support/AutomationNumber.h"
#include "support/RegExp.h"
#include "support/basPublic.h"
#include "upload/UploadBatch.h"

namespace velmora {

namespace {

const QString kWordTypes = QStringLiteral("doc|docx|wps");
const QString kExcelTypes = QStringLiteral("xls|xlsx|et");
const QString kSlideTypes = QStringLiteral("ppt|pptx|dps");

QString invalidFile(const QString& types) { return QStringLiteral("InvalidFile:") + types; }

// The engines an import tries, in order: the second one only after the first failed.
QStringList enginesFor(const QString& api, const QString& file, const QString& wpsExtension,
                       const QString& microsoftEngine) {
  if (api == u"1") return {microsoftEngine};
  if (api == u"2") return {QStringLiteral("wps")};
  if (GetFileExt(file).toLower() == wpsExtension) return {QStringLiteral("wps"), microsoftEngine};
  return {microsoftEngine, QStringLiteral("wps")};
}

}  // namespace

Velmora5::Velmora5(Context& context, ProducerFactory& producers, QObject* parent)
    : QObject(parent), context_(context), producers_(producers) {
  context_.g_sError.clear();
  context_.g_sTempFolder = GetTempFolder(context_.workingSubfolder);
  context_.g_sLang = QStringLiteral("zh-cn");
  m_sCharset = QStringLiteral("utf-8");
}

Velmora5::~Velmora5() {
  batch_.reset();
  cCapture.reset();
}

QString Velmora5::Test() { return QStringLiteral("Velmora"); }

// The flows that write pictures and pages need the working folder. When the shared folder
// was refused (a link, or another user's) they say so instead of writing anywhere else.
bool Velmora5::workingFolderReady() {
  if (!context_.g_sTempFolder.isEmpty()) return true;
  context_.g_sError = QStringLiteral("TempFolder:") + workingRootRefusal();
  return false;
}

bool Velmora5::hasWorkUnderWay() const { return cCapture || (batch_ && batch_->isSending()); }

QString Velmora5::Version() const {
  return QStringLiteral("%1.%2.0.%3")
      .arg(VELMORA_VERSION_MAJOR)
      .arg(VELMORA_VERSION_MINOR)
      .arg(VELMORA_VERSION_REVISION);
}

QString Velmora5::Status() const {
  return !context_.g_sError.isEmpty() || m_bFinished ? QStringLiteral("ok") : QString();
}

void Velmora5::setSendUrl(const QString& value) { m_sSendUrl = value + QStringLiteral("&action=local&type=local"); }

void Velmora5::setLang(const QString& value) {
  const QString lang = value.toLower();
  context_.g_sLang = lang == u"zh-cn" || lang == u"zh-tw" ? lang : QStringLiteral("en");
}

void Velmora5::setCharset(const QString& value) { m_sCharset = value; }

void Velmora5::setLocalSize(const QString& value) {
  if (const std::optional<double> number = NumericValue(value)) m_lLocalSize = RoundToInteger<int32_t>(*number);
}

void Velmora5::setLocalExt(const QString& value) { m_sLocalExt = value.toLower(); }

// ---- Office imports -----------------------------------------------------------------

template <typename T>
bool Velmora5::report(const Result<T>& result) {
  if (result)
    context_.g_sError.clear();
  else
    context_.g_sError = result.failure().text();
  return bool(result);
}

void Velmora5::takePictures(quint64 flow, const Result<QString>& body) {
  if (superseded(flow)) return;
  m_sBody = body ? body.value() : QString();
  if (report(body)) startUpload(QStringLiteral("wordimage"));
}

void Velmora5::takeHtml(const StyledHtml& html) {
  m_sStyle = html.style;
  m_sBody = html.body;
}

QString Velmora5::GetExcelWorkSheetName(const QString& s_File) {
  if (!IsValidFile(s_File, kExcelTypes)) {
    context_.g_sError = invalidFile(kExcelTypes);
    return QString();
  }
  for (const QString& engine : enginesFor(QStringLiteral("0"), s_File, QStringLiteral("et"), QStringLiteral("excel"))) {
    const Result<QString> names = producers_.createExcelEngine(context_, engine)->GetExcelWorkSheetName(s_File);
    if (report(names)) return names.value();
  }
  return QString();
}

void Velmora5::ImportExcelSheet(const QString& s_File, int16_t n_SheetIndex, const QString& s_Opt) {
  const QString mode = GetOptValue(s_Opt, QStringLiteral("mode"));
  const QString api = apiOption(s_Opt);
  if (!IsValidFile(s_File, kExcelTypes)) {
    context_.g_sError = invalidFile(kExcelTypes);
    return;
  }
  if (!workingFolderReady()) return;
  const quint64 flow = startFlow();
  if (mode == u"img") {
    m_sStyle.clear();
    const Result<QString> pictures =
        producers_.createExcelEngine(context_, QStringLiteral("excel"))->Excel2Images(s_File, n_SheetIndex, s_Opt);
    takePictures(flow, pictures);
    return;
  }
  for (const QString& engine : enginesFor(api, s_File, QStringLiteral("et"), QStringLiteral("excel"))) {
    const Result<StyledHtml> sheet =
        producers_.createExcelEngine(context_, engine)->Excel2HTML(s_File, n_SheetIndex, s_Opt);
    if (superseded(flow)) return;
    if (!report(sheet)) continue;
    takeHtml(sheet.value());
    startUpload(QStringLiteral("excel"));
    return;
  }
}

void Velmora5::ImportWord(const QString& s_File, const QString& s_Opt) {
  const QString mode = GetOptValue(s_Opt, QStringLiteral("mode"));
  const QString api = apiOption(s_Opt);
  const QString printImage = GetOptValue(s_Opt, QStringLiteral("printimage"));
  if (!IsValidFile(s_File, kWordTypes)) {
    context_.g_sError = invalidFile(kWordTypes);
    return;
  }
  if (!workingFolderReady()) return;
  const quint64 flow = startFlow();
  if (mode != u"html") {
    m_sStyle.clear();
    const Result<QString> pictures =
        printImage == u"1" ? producers_.createDocumentPrinter(context_)->Word2Images(s_File, s_Opt)
                           : producers_.createWordEngine(context_, QStringLiteral("word"))->Word2Images(s_File, s_Opt);
    takePictures(flow, pictures);
    return;
  }
  for (const QString& engine : enginesFor(api, s_File, QStringLiteral("wps"), QStringLiteral("word"))) {
    std::unique_ptr<WordEngine> word = producers_.createWordEngine(context_, engine);
    const Result<QString> page = word->Word2HTML(s_File);
    if (superseded(flow)) return;
    if (!report(page)) continue;
    const StyledHtml html = word->OptimizeHTML(QStringLiteral("import"), page.value(), s_Opt);
    if (superseded(flow)) return;
    takeHtml(html);
    startUpload(QStringLiteral("word"));
    return;
  }
}

void Velmora5::ImportPPT(const QString& s_File, const QString& s_Opt) {
  if (!IsValidFile(s_File, kSlideTypes)) {
    context_.g_sError = invalidFile(kSlideTypes);
    return;
  }
  if (!workingFolderReady()) return;
  const quint64 flow = startFlow();
  m_sStyle.clear();
  const Result<QString> pictures = producers_.createSlideExporter(context_)->PPT2Images(s_File, s_Opt);
  takePictures(flow, pictures);
}

// ---- Clipboard flows ----------------------------------------------------------------

void Velmora5::PasteWord(const QString& s_Opt) { pasteOfficeContent(s_Opt, /*excel=*/false); }

void Velmora5::PasteExcel(const QString& s_Opt) { pasteOfficeContent(s_Opt, /*excel=*/true); }

void Velmora5::pasteOfficeContent(const QString& s_Opt, bool excel) {
  if (GetOptValue(s_Opt, QStringLiteral("mode")) != u"html") {
    PasteImage(s_Opt);
    return;
  }
  const quint64 flow = startFlow();
  const QString html = GetClipboardHTML();
  const QString source = QStringLiteral("paste");
  const StyledHtml cleaned =
      excel ? producers_.createExcelEngine(context_, QStringLiteral("excel"))->OptimizeHTML(source, html, s_Opt)
            : producers_.createWordEngine(context_, QStringLiteral("word"))->OptimizeHTML(source, html, s_Opt);
  if (superseded(flow)) return;
  takeHtml(cleaned);
  context_.g_sError.clear();
  startUpload(QStringLiteral("local"));  // the clipboard route always counts as a success
}

void Velmora5::PasteImage(const QString& s_Opt) {
  if (!workingFolderReady()) return;
  const quint64 flow = startFlow();
  m_sStyle.clear();
  const Result<QString> pictures =
      producers_.createWordEngine(context_, QStringLiteral("word"))->WordPaste2Image(s_Opt);
  takePictures(flow, pictures);
}

void Velmora5::PasteFileList(const QString& /*s_Opt*/) {
  const quint64 flow = startFlow();
  m_sStyle.clear();
  bool listed = false;
  QString body;
  clsFileList(context_).FileList2HTML(m_sLocalExt, m_lLocalSize, body, listed);
  if (superseded(flow)) return;
  m_sBody = body;
  if (listed) startUpload(QStringLiteral("pastefilelist"));
}

QString Velmora5::GetClipboardFlag() {
  clsClipboard clipboard;
  auto offers = [&](std::initializer_list<uint32_t> formats) {
    for (uint32_t format : formats)
      if (clipboard.IsDataAvailableForFormat(format)) return true;
    return false;
  };
  auto digit = [](bool on) { return on ? QStringLiteral("1") : QStringLiteral("0"); };
  QString flag = digit(offers({cf::Bitmap, cf::EnhMetaFile, cf::MetaFilePict}));
  flag += u'|' + digit(offers({cf::Text}));
  flag += u'|' + digit(clipboard.IsDataAvailableForFormat(clipboard.AddFormat(richTextFormatName())));
  flag += u'|' + digit(offers({cf::HDrop}));
  flag += u'|' + digit(!GetClipboardHTML().isEmpty());
  flag += u'|' + sourceProgramDigit();
  return flag;
}

QString Velmora5::sourceProgramDigit() {
  const QString ownerLink = GetClipboardDataByName(QStringLiteral("OwnerLink"));
  const QString objectLink = GetClipboardDataByName(QStringLiteral("ObjectLink"));
  auto startsWith = [&](const QString& prefix) {
    return ownerLink.left(prefix.size()) == prefix || objectLink.left(prefix.size()) == prefix;
  };
  if (startsWith(QStringLiteral("Word.Document"))) return QStringLiteral("1");
  if (startsWith(QStringLiteral("Excel.Sheet"))) return QStringLiteral("2");
  if (ClipboardHasFormatLike(QStringLiteral("Kingsoft WPS"))) return QStringLiteral("3");
  if (ClipboardHasFormatLike(QStringLiteral("Kingsoft ET"))) return QStringLiteral("4");
  return QStringLiteral("0");
}

// ---- Capture ------------------------------------------------------------------------

void Velmora5::Capture(const QString& s_Opt) {
  if (!workingFolderReady()) return;
  m_sCaptureOpt = s_Opt.isEmpty() ? QStringLiteral("imgtype:png") : s_Opt;
  cCapture = producers_.createCaptureTool(context_);
  connect(cCapture.get(), &CaptureTool::ReturnValue, this, &Velmora5::cCapture_ReturnValue, Qt::QueuedConnection);
  if (Outcome started = cCapture->Capture(); !started) {
    cCapture.reset();
    report(started);
  }
}

void Velmora5::cCapture_ReturnValue(const QString& value) {
  if (value == u"cancel") {
    cCapture.reset();
    context_.g_sError = QStringLiteral("cancel");
  } else if (value == u"ok") {
    cCapture.reset();
    // Unlike PasteImage, Style keeps what the previous flow left.
    const quint64 flow = startFlow();
    takePictures(flow, producers_.createWordEngine(context_, QStringLiteral("word"))->WordPaste2Image(m_sCaptureOpt));
  }
  emit resultChanged();
}

// ---- Upload, quick format, Flash, dialogs, printer ----------------------------------

void Velmora5::LocalUpload(const QString& s_HTML) {
  context_.g_sError.clear();
  m_sStyle.clear();
  m_sOriginalFiles.clear();
  m_sSavedFiles.clear();
  const quint64 flow = startFlow();
  // A link to an anchor inside a local file becomes a bare in-page anchor.
  QString body = runAside([html = s_HTML] {
    return RegExpReplace(html, QStringLiteral(R"((href\s*?=\s*?['"])file[^'" >]+?(#[^\.'"\s>]*?['"]))"),
                         QStringLiteral("$1$2"));
  });
  if (superseded(flow)) return;
  m_sBody = std::move(body);
  startUpload(QStringLiteral("local"));
}

// A new batch replaces a running one: its request is aborted, so no answer of the old
// batch lands in the new lists. Each file's request clears the error text; a failed step
// leaves its word there and Status reads "ok".
void Velmora5::startUpload(const QString& uploadMode) {
  if (batch_) batch_->cancel();
  m_bFinished = false;
  UploadSettings settings{m_sSendUrl, m_sCharset, m_lLocalSize, m_sLocalExt, context_.g_sTempFolder};
  bool set = false;
  if (const int stall = qEnvironmentVariableIntValue("VELMORA_UPLOAD_STALL_SECONDS", &set); set && stall > 0)
    settings.stallSeconds = stall;
  batch_ = std::make_unique<UploadBatch>(std::move(settings), uploadMode, m_sBody);
  connect(batch_.get(), &UploadBatch::sending, this, [this] { context_.g_sError.clear(); });
  connect(batch_.get(), &UploadBatch::failed, this,
          [this](const Failure& failure) { context_.g_sError = failure.text(); });
  connect(batch_.get(), &UploadBatch::stepped, this, &Velmora5::resultChanged);
  connect(batch_.get(), &UploadBatch::finished, this, &Velmora5::uploadFinished);
  batch_->start();
}

void Velmora5::uploadFinished() {
  m_sBody = batch_->body();
  m_sOriginalFiles = batch_->originalFiles().join(u'|');
  m_sSavedFiles = batch_->savedFiles().join(u'|');
  m_bFinished = true;
  emit resultChanged();
}

void Velmora5::QuickFormat() { producers_.createQuickFormatter(context_)->QuickFormat(m_sStyle, m_sBody); }

QString Velmora5::GetFlashHeader(const QString& s_File) {
  std::unique_ptr<FlashHeaderReader> reader = producers_.createFlashHeaderReader(context_);
  if (!reader->Parse(s_File)) return QString();
  return QString::number(reader->Width()) + u'|' + QString::number(reader->Height());
}

QString Velmora5::DialogOpen(bool b_FileMustExist, bool b_MultiSelect, const QString& s_Filter, int32_t l_FilterIndex,
                             const QString& s_InitDir, const QString& s_DlgTitle) {
  return ShowOpenDialog(b_FileMustExist, b_MultiSelect, s_Filter, l_FilterIndex, s_InitDir, s_DlgTitle);
}

QString Velmora5::DialogSave(bool b_OverWritePrompt, const QString& s_Filter, int32_t l_FilterIndex,
                             const QString& s_InitDir, const QString& s_DlgTitle, const QString& s_DefaultExt) {
  return ShowSaveDialog(b_OverWritePrompt, s_Filter, l_FilterIndex, s_InitDir, s_DlgTitle, s_DefaultExt);
}

bool Velmora5::IsPrinterExist() { return producers_.IsPrinterExist(QStringLiteral("VelmoraPrinter")); }

}  // namespace velmora
