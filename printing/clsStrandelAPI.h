#pragma once
#include <QSize>
#include <QString>
#include <cstdint>

namespace velmora {

// The virtual printer's side of printing to pictures: whether it is installed, its settings
// (the values its backend reads under HKEY_LOCAL_MACHINE\SOFTWARE\<printer name>) and the
// progress the backend reports there.
class clsStrandelAPI {
 public:
  static constexpr int kPollIntervalMs = 2000;

  // `pollIntervalMs`: how often IsEnd looks at the progress. Only tests shorten it.
  explicit clsStrandelAPI(int pollIntervalMs = kPollIntervalMs) : pollIntervalMs_(pollIntervalMs) {}

  // True when the print server lists a destination with exactly this name (the server
  // named by CUPS_SERVER or the client configuration). No print server: false, after at
  // most the print system's own connection time-out.
  bool IsPrinterExist(const QString& s_PrinterName) const;

  // Writes the printer's setting `s_Key` as text; false when it cannot be written.
  bool SetParam(const QString& s_PrinterName, const QString& s_Key, const QString& s_Value);
  // The setting read up to its first NUL; "" when missing or unreadable.
  QString GetParam(const QString& s_PrinterName, const QString& s_Key);
  // What the backend counted for the last job: files written, pages drawn. 0 until it says.
  int32_t GetFileCount(const QString& s_PrinterName);
  int32_t GetPageCount(const QString& s_PrinterName);
  // Clears the progress before a job; true only when all of it was written.
  bool ResetStatus(const QString& s_PrinterName);
  // Waits, with the event loop running, until the backend reports "end": true then. False
  // when the job has not begun after l_BeginTimeOut seconds or not ended after
  // l_EndTimeOut seconds.
  bool IsEnd(const QString& s_PrinterName, int32_t l_BeginTimeOut, int32_t l_EndTimeOut);

  // Prints the file to the user's default destination with the user's options for it (its
  // paper among them), as lp does; true once the print server has taken the job. The print
  // server converts nothing here: the virtual printer takes PDF.
  bool PrintFile(const QString& file);

  // Whether the print server answers.
  bool IsPrintSpoolerRunning() const;
  // Starts the system's print server when this process may (as root); answers whether the
  // print server answers afterwards.
  bool StartPrintSpooler();

  // Printers and papers. The defaults are the user's own for a destination of the print
  // server: the print system keeps them in the user's lpoptions, where lp and every program
  // using the CUPS library find them: ~/.cups/lpoptions (CUPS 2.4 uses it for root too;
  // older libraries write $CUPS_SERVERROOT/lpoptions, normally /etc/cups/lpoptions, for
  // root). A destination is named exactly, as the print server lists it. The forms are
  // this printer's own, kept in the user's registry store; looking one up needs no server.

  // Makes the destination the user's default ("Default" in lpoptions). s_OriginalName: the
  // default before, "" when there was none. False when no destination has that name or the
  // options cannot be written.
  bool SetDefaultPrinter(const QString& s_PrinterName, QString& s_OriginalName);
  // The user's default paper for the destination (its "media" option): a paper of the
  // printer's description, in its own spelling, or a form added with AddPaperSize as a
  // custom size "Custom.<w>x<h>mm". False for an unknown form or destination.
  bool SetDefaultPaperSize(const QString& s_PrinterName, const QString& s_FormName);
  // Adds a form of that name, n_Width by n_Height centimetres, to the printer's forms unless
  // it has one of that name already (without regard to case). True when added or there.
  bool AddPaperSize(const QString& s_PrinterName, const QString& s_FormName, double n_Width, double n_Height);
  // The same with the size in thousandths of a millimetre.
  bool AddPaperForm(const QString& s_PrinterName, const QSize& size, const QString& s_FormName);
  // The printer's form of that name (without regard to case) and its size in thousandths
  // of a millimetre: a paper of the description or an added form.
  bool GetFormIndex(const QString& s_PrinterName, const QString& s_FormName, QSize& size);
  // A form of exactly that size, in thousandths of a millimetre; added forms first, as the
  // user named them for a reason.
  bool FindFormBySize(const QString& s_PrinterName, const QSize& size, QString& s_FormName);
  // The user's default resolution ("printer-resolution": "<x>dpi", or "<x>x<y>dpi" when
  // they differ) and orientation ("orientation-requested": 1 portrait as 3, 2 landscape as
  // 4) for the destination. False for a missing destination or a value out of range.
  bool SetDefaultDPI(const QString& s_PrinterName, int x, int y);
  bool SetDefaultOrientation(const QString& s_PrinterName, int orientation);

 private:
  int pollIntervalMs_;
};

}  // namespace velmora
