#pragma once
#include <QObject>
#include <QString>
#include <QVariantList>

namespace velmora {
struct InterfaceInfo;
}

namespace velmora::agent {

// Passes on the events a control raises (the signals its event interface names) as one
// signal with the event's name and arguments, and its resultChanged() when it has one, so
// a host can send them on without knowing the control's class. Event arguments are texts,
// as the event interfaces declare them.
class EventRelay : public QObject {
  Q_OBJECT

 public:
  EventRelay(QObject& source, const InterfaceInfo& events, QObject* parent = nullptr);
  // Names of the events the source does not raise as a signal of texts.
  const QStringList& missing() const { return missing_; }

 signals:
  void raised(const QString& name, const QVariantList& args);
  void resultChanged();

 private slots:
  void relayResult();
  void relay0();
  void relay1(const QString& a);
  void relay2(const QString& a, const QString& b);
  void relay3(const QString& a, const QString& b, const QString& c);

 private:
  void relay(const QVariantList& args);
  QStringList missing_;
};

}  // namespace velmora::agent
