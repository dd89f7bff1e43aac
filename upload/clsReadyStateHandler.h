#pragma once
#include <QObject>

namespace velmora {

// The callback object of an upload request: the request calls OnReadyStateChange on
// every change of its ready state, and the control handles the event it raises.
class clsReadyStateHandler : public QObject {
  Q_OBJECT
 public slots:
  void OnReadyStateChange() { emit OnStateChange(); }
 signals:
  void OnStateChange();
};

}  // namespace velmora
