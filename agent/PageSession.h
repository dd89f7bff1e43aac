#pragma once
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>
#include <functional>
#include <map>
#include <memory>

#include "core/Context.h"
#include "server/ObjectSafety.h"

namespace velmora {
struct ClassInfo;
}

namespace velmora::agent {

// Makes the control named `className` in `context`; throws ScriptError when it cannot.
using ControlFactory = std::function<std::unique_ptr<QObject>(const QString& className, Context& context)>;

// What one connected page sees of the agent, published to it as the object "velmora":
// the type library, and controls it creates and then drives by id. The page is one
// scripting context with its own working folder; when the session ends, its controls are
// freed and that folder is deleted.
//
// Every call answers a reply map:
//   {ok: true,  value: <result>, properties: {<readable property>: <value>, ...}}
//   {ok: false, error: {number, description}, properties: {...}}
// where `properties` holds the readable properties of the called control that changed
// since the page last heard of them (all of them in the reply to create). Changes to other
// controls of the page (they share the error text) and changes made by work that goes on
// after a call returned arrive through propertiesChanged.
class PageSession : public QObject {
  Q_OBJECT
  // Whether the agent has a desktop display: without one, members that show a window or
  // read the clipboard fail with an error that says so.
  Q_PROPERTY(bool hasDisplay READ hasDisplay CONSTANT)

 public:
  // The subfolder below "<temp>/Velmora/" that is this page's working folder.
  explicit PageSession(const QString& workingSubfolder, ControlFactory factory = {}, QObject* parent = nullptr);
  ~PageSession() override;

  // Without a display, members that show a window (dialogs, capture) or read the clipboard
  // fail at once with a clear error, instead of waiting for a user who cannot see them or
  // reading as an empty clipboard.
  void setHasDisplay(bool hasDisplay) { hasDisplay_ = hasDisplay; }
  bool hasDisplay() const { return hasDisplay_; }
  // What the controls answer when asked whether a page may script them and hand them its
  // data; the session asks, as a browser does, before it gives a page a control.
  void setSafetyAnswers(const ObjectSafety& answers) { safety_ = answers; }
  // Runs `done` once no call of this session is on the stack any more: a page that goes
  // while a call still runs (the control lets the event loop run) is torn down after it.
  void whenIdle(std::function<void()> done);
  bool isBusy() const { return callDepth_ > 0; }
  QString workingFolder() const;
  int objectCount() const { return int(objects_.size()); }

  // The classes, their members (kind, dispatch id, types, parameters with their
  // defaults) and events, as JSON-able maps.
  Q_INVOKABLE QVariantMap typeLibrary() const;
  Q_INVOKABLE QVariantMap create(const QString& className);
  Q_INVOKABLE QVariantMap invoke(int id, const QString& member, const QVariantList& args);
  Q_INVOKABLE QVariantMap put(int id, const QString& property, const QVariant& value);
  Q_INVOKABLE QVariantMap get(int id, const QString& property);
  Q_INVOKABLE QVariantMap release(int id);

  using QObject::event;

 signals:
  void propertiesChanged(int id, const QVariantMap& properties);
  // An event the control raised (the upload control's OnUpload and OnCancel).
  void event(int id, const QString& name, const QVariantList& args);

 private:
  struct Entry;
  class CallScope;

  QVariantMap call(int id, const std::function<QVariant(Entry&)>& work);
  std::shared_ptr<Entry> find(int id) const;
  void forwardEvents(int id, Entry& entry);
  QVariantMap takeChanges(Entry& entry);
  void announceChanges(int exceptId);

  Context context_;
  ControlFactory factory_;
  std::map<int, std::shared_ptr<Entry>> objects_;
  int nextId_ = 1;
  int callDepth_ = 0;
  void refuseUnlessSafe(const QString& className) const;

  ObjectSafety safety_;
  bool hasDisplay_ = true;
  std::vector<std::function<void()>> idleWaiters_;
};

}  // namespace velmora::agent
