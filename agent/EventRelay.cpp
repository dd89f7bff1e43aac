#include "agent/EventRelay.h"

#include <QMetaMethod>

#include "server/TypeLibrary.h"

namespace velmora::agent {

namespace {

constexpr const char* kRelaySlots[] = {"relay0()", "relay1(QString)", "relay2(QString,QString)",
                                       "relay3(QString,QString,QString)"};

// The index of the signal called `name` with `arity` text parameters, or -1.
int textSignalIndex(const QMetaObject& meta, const char* name, qsizetype arity) {
  for (int i = 0; i < meta.methodCount(); ++i) {
    const QMetaMethod method = meta.method(i);
    if (method.methodType() != QMetaMethod::Signal || method.name() != name || method.parameterCount() != arity)
      continue;
    bool allText = true;
    for (int p = 0; p < arity; ++p) allText = allText && method.parameterType(p) == QMetaType::QString;
    if (allText) return i;
  }
  return -1;
}

}  // namespace

EventRelay::EventRelay(QObject& source, const InterfaceInfo& events, QObject* parent) : QObject(parent) {
  for (const MemberInfo& member : events.members) {
    const qsizetype arity = qsizetype(member.params.size());
    const int signal =
        arity < qsizetype(std::size(kRelaySlots)) ? textSignalIndex(*source.metaObject(), member.name, arity) : -1;
    if (signal < 0) {
      missing_.append(QString::fromLatin1(member.name));
      continue;
    }
    QMetaObject::connect(&source, signal, this, metaObject()->indexOfSlot(kRelaySlots[arity]));
  }
  if (const int signal = source.metaObject()->indexOfSignal("resultChanged()"); signal >= 0)
    QMetaObject::connect(&source, signal, this, metaObject()->indexOfSlot("relayResult()"));
}

void EventRelay::relayResult() { emit resultChanged(); }

void EventRelay::relay0() { relay({}); }
void EventRelay::relay1(const QString& a) { relay({a}); }
void EventRelay::relay2(const QString& a, const QString& b) { relay({a, b}); }
void EventRelay::relay3(const QString& a, const QString& b, const QString& c) { relay({a, b, c}); }

void EventRelay::relay(const QVariantList& args) {
  const QMetaMethod signal = sender()->metaObject()->method(senderSignalIndex());
  emit raised(QString::fromLatin1(signal.name()), args);
}

}  // namespace velmora::agent
