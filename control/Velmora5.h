#pragma once
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "core/Context.h"
#include "core/Producers.h"
#include "core/Result.h"

namespace velmora {

class UploadBatch;

// The editor control: the object a page's script creates and drives. Each method hands the
// page's request to the producer that does the work and then, for every flow that produces
// HTML with pictures, uploads the local picture files to the page's server. The page reads
// the outcome through Style, Body, OriginalFiles, SavedFiles, Status and Error.
//
// Failures of the work never reach the script as errors: every method returns normally and
// the page learns the outcome from Status and Error. What does reach the script as a failed
// call (a clipboard held by another program, an overflowing LocalSize, an invalid rule) is
// thrown as ScriptError.
class Velmora5 : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString Version READ Version CONSTANT)
  Q_PROPERTY(QString Style READ Style)
  Q_PROPERTY(QString Body READ Body)
  Q_PROPERTY(QString OriginalFiles READ OriginalFiles)
  Q_PROPERTY(QString SavedFiles READ SavedFiles)
  Q_PROPERTY(QString Status READ Status)
  Q_PROPERTY(QString Error READ Error)

 public:
  Velmora5(Context& context, ProducerFactory& producers, QObject* parent = nullptr);
  ~Velmora5() override;

  Q_INVOKABLE QString Test();
  Q_INVOKABLE QString GetExcelWorkSheetName(const QString& s_File);
  Q_INVOKABLE void ImportExcelSheet(const QString& s_File, int16_t n_SheetIndex, const QString& s_Opt);
  Q_INVOKABLE void PasteExcel(const QString& s_Opt);
  Q_INVOKABLE void ImportWord(const QString& s_File, const QString& s_Opt);
  Q_INVOKABLE void ImportPPT(const QString& s_File, const QString& s_Opt);
  Q_INVOKABLE void PasteWord(const QString& s_Opt);
  Q_INVOKABLE void PasteImage(const QString& s_Opt);
  Q_INVOKABLE void PasteFileList(const QString& s_Opt);
  Q_INVOKABLE void Capture(const QString& s_Opt);
  Q_INVOKABLE void LocalUpload(const QString& s_HTML);
  Q_INVOKABLE QString GetClipboardFlag();
  Q_INVOKABLE void QuickFormat();
  Q_INVOKABLE QString GetFlashHeader(const QString& s_File);
  Q_INVOKABLE QString DialogOpen(bool b_FileMustExist, bool b_MultiSelect, const QString& s_Filter,
                                 int32_t l_FilterIndex, const QString& s_InitDir, const QString& s_DlgTitle);
  Q_INVOKABLE QString DialogSave(bool b_OverWritePrompt, const QString& s_Filter, int32_t l_FilterIndex,
                                 const QString& s_InitDir, const QString& s_DlgTitle, const QString& s_DefaultExt);
  Q_INVOKABLE bool IsPrinterExist();

  // Read-only properties.
  QString Version() const;
  QString Style() const { return m_sStyle; }
  QString Body() const { return m_sBody; }
  QString OriginalFiles() const { return m_sOriginalFiles; }
  QString SavedFiles() const { return m_sSavedFiles; }
  QString Status() const;
  QString Error() const { return context_.g_sError; }

  // Write-only properties: the page sets them with text, even where the value is a number.
  Q_INVOKABLE void setSendUrl(const QString& value);
  Q_INVOKABLE void setLang(const QString& value);
  Q_INVOKABLE void setCharset(const QString& value);
  Q_INVOKABLE void setLocalSize(const QString& value);
  Q_INVOKABLE void setLocalExt(const QString& value);

  Context& context() const { return context_; }
  // Whether work of the last call goes on after it returned (an upload request in flight,
  // a capture window open): only then can Status still change. Not part of the page's
  // surface; the command line stops waiting when this is false.
  bool hasWorkUnderWay() const;

 signals:
  // The work of a call went on after the call returned (an upload step, a capture) and the
  // result properties may have changed. Hosts use it to refresh what the page sees.
  void resultChanged();

 private:
  bool workingFolderReady();
  // The one place where a producer's failure becomes the error text: cleared on success,
  // the failure's word and description otherwise. Answers whether the producer succeeded.
  template <typename T>
  bool report(const Result<T>& result);
  // A picture route's body, unless a later flow took over; on success its pictures are uploaded.
  void takePictures(quint64 flow, const Result<QString>& body);
  void takeHtml(const StyledHtml& html);

  // Content flows.
  void pasteOfficeContent(const QString& s_Opt, bool excel);
  void startUpload(const QString& uploadMode);
  void uploadFinished();
  QString sourceProgramDigit();
  void cCapture_ReturnValue(const QString& value);

  Context& context_;
  ProducerFactory& producers_;

  QString m_sCaptureOpt;
  QString m_sStyle;
  QString m_sBody;
  QString m_sOriginalFiles;
  QString m_sSavedFiles;
  bool m_bFinished = false;
  QString m_sSendUrl;
  QString m_sCharset;
  int32_t m_lLocalSize = 0;
  QString m_sLocalExt;
  std::unique_ptr<CaptureTool> cCapture;
  // The upload of the last flow's pictures; replaced (and so stopped) by the next flow's.
  std::unique_ptr<UploadBatch> batch_;
  // Flows started so far. A flow waits (for the office, or for work done aside) with the
  // page's events running, so the page may start another meanwhile: the later flow's result
  // stands, and the earlier one drops its own when it resumes, as a new upload batch
  // replaces a running one.
  quint64 flowsStarted_ = 0;
  quint64 startFlow() { return ++flowsStarted_; }
  bool superseded(quint64 flow) const { return flow != flowsStarted_; }
};

}  // namespace velmora
