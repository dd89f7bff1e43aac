#pragma once
#include <QObject>

namespace velmora {

// The request object of the file being uploaded.
class XmlHttpRequest {
 public:
  virtual ~XmlHttpRequest() = default;
};

// Turns the request's ready-state notification into an event the control handles.
class clsReadyStateHandler : public QObject {
  Q_OBJECT
 signals:
  void OnStateChange();
};

}  // namespace velmora
