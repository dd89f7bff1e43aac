#include "agent/OriginPrompt.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace velmora::agent {

OriginAnswer askTheUserAbout(const QString& origin, std::chrono::milliseconds timeout) {
  QMessageBox box(QMessageBox::Question, QStringLiteral("Velmora"),
                  QStringLiteral("Allow %1 to use Velmora on this computer?").arg(origin));
  box.setInformativeText(
      QStringLiteral("A page from this address asks to use Velmora. It could then read the pictures and documents "
                     "named in what it hands over, and send them to its server. Allow only addresses you trust."));
  const QPushButton* once = box.addButton(QStringLiteral("Allow once"), QMessageBox::AcceptRole);
  const QPushButton* always = box.addButton(QStringLiteral("Always"), QMessageBox::AcceptRole);
  QPushButton* deny = box.addButton(QStringLiteral("Deny"), QMessageBox::RejectRole);
  box.setDefaultButton(deny);
  box.setEscapeButton(deny);
  box.setWindowFlag(Qt::WindowStaysOnTopHint);
  bool timedOut = false;
  QTimer::singleShot(timeout, &box, [&] {
    timedOut = true;
    box.done(QMessageBox::Cancel);
  });
  box.exec();  // also ends when the agent quits meanwhile, with no button clicked
  if (timedOut) return OriginAnswer::NoAnswer;
  if (box.clickedButton() == once) return OriginAnswer::AllowOnce;
  if (box.clickedButton() == always) return OriginAnswer::AlwaysAllow;
  return box.clickedButton() == deny ? OriginAnswer::Deny : OriginAnswer::NoAnswer;
}

}  // namespace velmora::agent
