#pragma once
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

  // Whether the print server answers.
  bool IsPrintSpoolerRunning() const;
  // Starts the system's print server when this process may (as root); answers whether the
  // print server answers afterwards.
  bool StartPrintSpooler();

 private:
  int pollIntervalMs_;
};

}  // namespace velmora
