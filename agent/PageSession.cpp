#include "agent/PageSession.h"

#include <QDir>
#include <stdexcept>

#include "agent/EventRelay.h"
#include "core/ScriptError.h"
#include "host/StandardProducers.h"
#include "server/Dispatch.h"
#include "server/TypeLibrary.h"
#include "support/basPublic.h"

namespace velmora::agent {

namespace {

constexpr long kObjectRequired = 424;
constexpr long kAutomationError = 440;

QString typeName(VarType type) {
  switch (type) {
    case VarType::Void: return QStringLiteral("void");
    case VarType::String: return QStringLiteral("string");
    case VarType::Bool: return QStringLiteral("bool");
    case VarType::Int16: return QStringLiteral("int16");
    case VarType::Int32: return QStringLiteral("int32");
  }
  return {};
}

QString kindName(MemberKind kind) {
  switch (kind) {
    case MemberKind::Method: return QStringLiteral("method");
    case MemberKind::PropertyGet: return QStringLiteral("get");
    case MemberKind::PropertyPut: return QStringLiteral("put");
    case MemberKind::Event: return QStringLiteral("event");
  }
  return {};
}

QVariantMap describe(const ParamInfo& param) {
  QVariantMap map{{"name", param.name}, {"type", typeName(param.type)}, {"optional", param.optional}};
  if (param.optional) map.insert("default", coerce(QString::fromUtf8(param.defaultValue), param.type));
  return map;
}

QVariantMap describe(const MemberInfo& member) {
  QVariantList params;
  for (const ParamInfo& param : member.params) params.append(describe(param));
  return {{"dispId", member.dispId},
          {"name", member.name},
          {"kind", kindName(member.kind)},
          {"type", typeName(member.result)},
          {"params", params},
          {"pollsStatus", member.pollsStatus},
          {"showsWindow", member.showsWindow},
          {"needsDisplay", member.needsDisplay()}};
}

QVariantMap describe(const InterfaceInfo& interface) {
  QVariantList members;
  for (const MemberInfo& member : interface.members) members.append(describe(member));
  return {{"name", interface.name}, {"members", members}};
}

QVariantMap failure(long number, const QString& description) {
  return {{"ok", false}, {"error", QVariantMap{{"number", qlonglong(number)}, {"description", description}}}};
}

// A null argument stands for one the page left out: an optional one takes its default.
QVariantList withDefaults(const MemberInfo& member, QVariantList args) {
  for (qsizetype i = 0; i < args.size() && i < qsizetype(member.params.size()); ++i)
    if (args[i].isNull() && member.params[i].optional) args[i] = QString::fromUtf8(member.params[i].defaultValue);
  return args;
}

std::unique_ptr<QObject> standardControls(const QString& className, Context& context) {
  return CreateControl(className, context, standardProducers());
}

bool isPlainName(const QString& name) {
  return !name.isEmpty() && !name.contains(u'/') && !name.contains(u'\\') && name != u"." && name != u"..";
}

}  // namespace

struct PageSession::Entry {
  std::unique_ptr<QObject> control;
  std::unique_ptr<Dispatch> dispatch;
  std::unique_ptr<EventRelay> relay;
  QVariantMap sent;  // the readable properties as the page last heard them
  bool released = false;
};

// Counts the calls on the stack; the last one to leave runs what waits for the session
// to be idle.
class PageSession::CallScope {
 public:
  explicit CallScope(PageSession& session) : session_(session) { ++session_.callDepth_; }
  ~CallScope() {
    if (--session_.callDepth_ > 0) return;
    for (auto& done : std::exchange(session_.idleWaiters_, {})) done();
  }

 private:
  PageSession& session_;
};

PageSession::PageSession(const QString& workingSubfolder, ControlFactory factory, QObject* parent)
    : QObject(parent), factory_(factory ? std::move(factory) : standardControls) {
  if (!isPlainName(workingSubfolder)) throw std::invalid_argument("a page's working subfolder must be a plain name");
  context_.workingSubfolder = workingSubfolder;
}

PageSession::~PageSession() {
  objects_.clear();
  DeleteFolder(workingFolder());
}

QString PageSession::workingFolder() const { return workingFolderPath(context_.workingSubfolder); }

void PageSession::whenIdle(std::function<void()> done) {
  if (isBusy())
    idleWaiters_.push_back(std::move(done));
  else
    done();
}

QVariantMap PageSession::typeLibrary() const {
  const TypeLibraryInfo& library = velmora::typeLibrary();
  QVariantList classes;
  for (const ClassInfo& cls : library.classes)
    classes.append(QVariantMap{{"name", cls.name},
                               {"clsid", cls.clsid},
                               {"dispatch", describe(cls.dispatch)},
                               {"events", describe(cls.events)}});
  return {{"name", library.name}, {"libid", library.libid}, {"classes", classes}};
}

// A page is untrusted: it gets a control only if the control says it is safe to script
// and to initialise from page data.
void PageSession::refuseUnlessSafe(const QString& className) const {
  const auto asks = [&](const QString& interfaceId, uint32_t option) {
    return safety_.SetInterfaceSafetyOptions(interfaceId, option, option) == hresult::S_OK;
  };
  if (!asks(iid::IDispatch, safety::SafeForUntrustedCaller) ||
      !asks(iid::IPersistPropertyBag, safety::SafeForUntrustedData))
    throw ScriptError(429, QStringLiteral("ActiveX component can't create object: %1 is not marked safe for "
                                          "scripting and initialising from a page")
                               .arg(className));
}

QVariantMap PageSession::create(const QString& className) {
  CallScope scope(*this);
  auto entry = std::make_shared<Entry>();
  try {
    const ClassInfo* cls = findClass(className);
    if (cls) refuseUnlessSafe(className);
    entry->control = factory_(className, context_);
    if (!cls || !entry->control)
      throw ScriptError(429, QStringLiteral("ActiveX component can't create object: ") + className);
    entry->dispatch = std::make_unique<Dispatch>(*entry->control, *cls);
  } catch (const ScriptError& error) {
    return failure(error.number(), error.description());
  } catch (const std::exception& error) {
    return failure(kAutomationError, QString::fromUtf8(error.what()));
  }
  const int id = nextId_++;
  entry->relay = std::make_unique<EventRelay>(*entry->control, entry->dispatch->classInfo().events);
  connect(entry->relay.get(), &EventRelay::raised, this, [this, id](const QString& name, const QVariantList& args) {
    announceChanges(/*exceptId=*/0);
    emit event(id, name, args);
  });
  connect(entry->relay.get(), &EventRelay::resultChanged, this, [this] { announceChanges(/*exceptId=*/0); });
  objects_[id] = entry;
  QVariantMap reply{{"ok", true}, {"value", id}, {"properties", takeChanges(*entry)}};
  announceChanges(id);  // a new editor control clears the error text the page's controls share
  return reply;
}

QVariantMap PageSession::invoke(int id, const QString& member, const QVariantList& args) {
  return call(id, [&](Entry& entry) {
    const MemberInfo& method = entry.dispatch->method(member);
    if (!hasDisplay_ && method.needsDisplay()) throw ScriptError(errnum::InvalidProcedureCall, method.withoutDisplay());
    return entry.dispatch->invoke(member, withDefaults(method, args));
  });
}

QVariantMap PageSession::put(int id, const QString& property, const QVariant& value) {
  return call(id, [&](Entry& entry) {
    entry.dispatch->put(property, value);
    return QVariant();
  });
}

QVariantMap PageSession::get(int id, const QString& property) {
  return call(id, [&](Entry& entry) { return entry.dispatch->get(property); });
}

QVariantMap PageSession::release(int id) {
  const auto it = objects_.find(id);
  if (it == objects_.end()) return failure(kObjectRequired, QStringLiteral("Object required: no control %1").arg(id));
  // A call of this control still on the stack keeps it alive until that call returns.
  it->second->released = true;
  it->second->relay->disconnect(this);
  objects_.erase(it);
  return {{"ok", true}, {"value", QVariant()}};
}

QVariantMap PageSession::call(int id, const std::function<QVariant(Entry&)>& work) {
  const std::shared_ptr<Entry> entry = find(id);
  if (!entry) return failure(kObjectRequired, QStringLiteral("Object required: no control %1").arg(id));
  CallScope scope(*this);
  QVariantMap reply;
  try {
    reply = {{"ok", true}, {"value", work(*entry)}};
  } catch (const ScriptError& error) {
    reply = failure(error.number(), error.description());
  } catch (const std::exception& error) {
    reply = failure(kAutomationError, QString::fromUtf8(error.what()));
  }
  reply.insert("properties", takeChanges(*entry));
  announceChanges(id);
  return reply;
}

std::shared_ptr<PageSession::Entry> PageSession::find(int id) const {
  const auto it = objects_.find(id);
  return it == objects_.end() ? nullptr : it->second;
}

QVariantMap PageSession::takeChanges(Entry& entry) {
  if (entry.released) return {};
  QVariantMap changes;
  const QVariantMap current = entry.dispatch->readableProperties();
  for (auto it = current.begin(); it != current.end(); ++it) {
    const auto sent = entry.sent.constFind(it.key());
    if (sent != entry.sent.cend() && *sent == it.value()) continue;
    changes.insert(it.key(), it.value());
    entry.sent.insert(it.key(), it.value());
  }
  return changes;
}

void PageSession::announceChanges(int exceptId) {
  // A copy: a page's handler may create or release controls while we go through them.
  const auto objects = objects_;
  for (const auto& [id, entry] : objects) {
    if (id == exceptId) continue;
    const QVariantMap changes = takeChanges(*entry);
    if (!changes.isEmpty()) emit propertiesChanged(id, changes);
  }
}

}  // namespace velmora::agent
