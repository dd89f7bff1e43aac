// velmora.js: the page side of the Velmora agent.
//
//   const client = await connect();                 // ws://127.0.0.1:8765
//   const v = await client.create("Velmora5");
//   await v.Test();                                 // "Velmora"
//   v.SendUrl = "https://example.com/upload?x=1";   // write-only properties are setters
//   await v.put("LocalSize", "2048");               // ... or awaited, to see their errors
//   await v.LocalUpload(html);
//   const result = await v.whenDone();              // Status "ok": read Error, Body, ...
//
// The agent keeps a mirror of each control's readable properties up to date, so they read
// synchronously (v.Status, v.Body), exactly as a page polls Status. Methods are async and
// get the defaults of the arguments they leave out from the agent. A failed call rejects
// with a VelmoraError carrying the automation error's `number` and `description`.
//
// Needs Qt's qwebchannel.js loaded first (a classic script that defines QWebChannel), or
// its QWebChannel given to connect().

export const DEFAULT_URL = "ws://127.0.0.1:8765";

// What a call answers when the agent went away under it, as automation reports it.
const DISCONNECTED = { number: -2147417848, description: "The object invoked has disconnected from its clients" };

export class VelmoraError extends Error {
  constructor(number, description) {
    super(description);
    this.name = "VelmoraError";
    this.number = number;
    this.description = description;
  }
}

// Chromium lets a page served from another address reach this computer's loopback only
// from https, and only once the user allowed the site's local network access.
function localNetworkAdvice() {
  const hostname = globalThis.location?.hostname;
  if (!hostname || ["localhost", "127.0.0.1", "[::1]", "::1"].includes(hostname)) return "";
  return globalThis.isSecureContext
    ? "; or the browser's local network access is blocked for this site (allow it in the site's settings)"
    : "; or the browser blocked it: a page served over http from another address never reaches this computer " +
        "(serve it over https)";
}

export async function connect(url = DEFAULT_URL, { timeoutMs = 10000, QWebChannel = globalThis.QWebChannel } = {}) {
  if (typeof QWebChannel !== "function") throw new Error("qwebchannel.js is not loaded; load it before connecting");
  const socket = new WebSocket(url);
  const closed = new Promise((resolve) => socket.addEventListener("close", resolve, { once: true }));
  await withTimeout(
    new Promise((resolve, reject) => {
      socket.addEventListener("open", resolve, { once: true });
      closed.then(() => reject(new Error(`the Velmora agent at ${url} refused the connection or is not running` +
        localNetworkAdvice())));
    }),
    timeoutMs,
    `no answer from the Velmora agent at ${url}`,
    () => socket.close(),
  );
  const channel = await withTimeout(
    new Promise((resolve) => new QWebChannel(socket, resolve)),
    timeoutMs,
    "the Velmora agent did not set up its channel",
    () => socket.close(),
  );
  const session = channel.objects.velmora;
  if (!session) throw new Error("the agent offers no velmora object");
  const client = new VelmoraClient(socket, session, closed, url);
  await client._loadTypeLibrary();
  return client;
}

export class VelmoraClient {
  #socket;
  #session;
  #objects = new Map();
  #pending = new Set();
  #isClosed = false;

  constructor(socket, session, closed, url) {
    this.#socket = socket;
    this.#session = session;
    this.url = url;
    this.typeLibrary = null;
    // Resolves with the close event when the connection ends, for whatever reason.
    this.closed = closed.then((event) => {
      this.#isClosed = true;
      for (const reject of this.#pending) reject(new VelmoraError(DISCONNECTED.number, DISCONNECTED.description));
      this.#pending.clear();
      return event;
    });
    session.propertiesChanged.connect((id, properties) => this.#objects.get(id)?._update(properties));
    session.event.connect((id, name, args) => this.#objects.get(id)?._raise(name, args));
  }

  get isClosed() {
    return this.#isClosed;
  }

  // Whether the agent has a desktop display. Without one, members that read the clipboard
  // or show a window fail with an error that says so (the type library marks them
  // "needsDisplay").
  get hasDisplay() {
    return this.#session.hasDisplay !== false;
  }

  async _loadTypeLibrary() {
    this.typeLibrary = await this._send("typeLibrary");
  }

  // The class of the type library named `name`, without regard to case.
  classInfo(name) {
    const wanted = String(name).toLowerCase();
    return this.typeLibrary.classes.find((cls) => cls.name.toLowerCase() === wanted);
  }

  // Creates a control ("Velmora5", "VelmoraMFU5") for this page.
  async create(className) {
    const reply = await this._send("create", className);
    const id = unwrap(reply);
    const control = new VelmoraControl(this, id, this.classInfo(className), reply.properties);
    this.#objects.set(id, control);
    return control;
  }

  close() {
    this.#socket.close();
    return this.closed;
  }

  // Sends one session call; rejects if the connection ends before the answer.
  _send(method, ...args) {
    if (this.#isClosed) return Promise.reject(new VelmoraError(DISCONNECTED.number, DISCONNECTED.description));
    return new Promise((resolve, reject) => {
      this.#pending.add(reject);
      this.#session[method](...args).then(
        (value) => {
          this.#pending.delete(reject);
          resolve(value);
        },
        () => {
          this.#pending.delete(reject);
          reject(new VelmoraError(DISCONNECTED.number, DISCONNECTED.description));
        },
      );
    });
  }

  _forget(id) {
    this.#objects.delete(id);
  }
}

// One control: the members of its class as methods, getters and setters, its events as
// On<Name> handlers and listeners.
export class VelmoraControl {
  #client;
  #mirror = {};
  #listeners = new Map();
  #handlers = {};
  #waiters = new Set();

  constructor(client, id, classInfo, properties) {
    this.#client = client;
    this.id = id;
    this.className = classInfo.name;
    this.#mirror = { ...properties };
    for (const member of classInfo.dispatch.members) this.#define(member);
    for (const event of classInfo.events.members) this.#defineEvent(event.name);
  }

  // Calls a method by name; omitted trailing arguments take the member's defaults.
  async call(member, ...args) {
    while (args.length && args[args.length - 1] === undefined) args.pop();
    return this.#reply(this.#client._send("invoke", this.id, member, args.map((a) => (a === undefined ? null : a))));
  }

  async get(property) {
    return this.#reply(this.#client._send("get", this.id, property));
  }

  async put(property, value) {
    await this.#reply(this.#client._send("put", this.id, property, value));
  }

  async release() {
    this.#client._forget(this.id);
    await this.#reply(this.#client._send("release", this.id));
  }

  // The readable properties as the agent last reported them.
  get properties() {
    return { ...this.#mirror };
  }

  // Waits until Status reads "ok" (the work of the last call is over, well or not) and
  // answers the readable properties; Error "" means success. The agent reports changes as
  // they happen; Status is also asked every `pollMs` in case a change went unreported.
  async whenDone({ timeoutMs = 300000, pollMs = 1000 } = {}) {
    const deadline = Date.now() + timeoutMs;
    while (this.#mirror.Status !== "ok") {
      const left = deadline - Date.now();
      if (left <= 0) {
        const error = new Error(`Status did not read "ok" within ${timeoutMs} ms`);
        error.name = "TimeoutError";
        throw error;
      }
      const changed = await this.#nextChange(Math.min(pollMs, left));
      if (!changed && this.#mirror.Status !== "ok") await this.get("Status");
    }
    return this.properties;
  }

  // Listeners of an event get its arguments (s_Flag, s_Value, ...); listeners of
  // "propertychange" get the map of changed properties.
  addEventListener(name, listener) {
    if (!this.#listeners.has(name)) this.#listeners.set(name, new Set());
    this.#listeners.get(name).add(listener);
  }

  removeEventListener(name, listener) {
    this.#listeners.get(name)?.delete(listener);
  }

  _update(properties) {
    Object.assign(this.#mirror, properties);
    for (const wake of this.#waiters) wake(true);
    this.#waiters.clear();
    this.#emit("propertychange", [{ ...properties }]);
  }

  _raise(name, args) {
    this.#handlers[name]?.(...args);
    this.#emit(name, args);
  }

  #emit(name, args) {
    for (const listener of this.#listeners.get(name) ?? []) {
      try {
        listener(...args);
      } catch (error) {
        console.error(`a ${name} listener failed:`, error);
      }
    }
  }

  async #reply(pending) {
    const reply = await pending;
    if (reply.properties && Object.keys(reply.properties).length) this._update(reply.properties);
    return unwrap(reply);
  }

  #nextChange(ms) {
    return new Promise((resolve) => {
      const wake = (changed) => {
        clearTimeout(timer);
        this.#waiters.delete(wake);
        resolve(changed);
      };
      const timer = setTimeout(() => wake(false), ms);
      this.#waiters.add(wake);
    });
  }

  #define(member) {
    const name = member.name;
    if (name in this) return;  // never shadow the helpers above
    const descriptor = { enumerable: true, configurable: false };
    if (member.kind === "method") {
      descriptor.value = (...args) => this.call(name, ...args);
    } else if (member.kind === "get") {
      descriptor.get = () => this.#mirror[name];
    } else if (member.kind === "put") {
      // A setter cannot answer; its failure goes to "error" listeners (or the console).
      descriptor.set = (value) => {
        this.put(name, value).catch((error) => {
          if (this.#listeners.get("error")?.size) this.#emit("error", [error]);
          else console.error(`setting ${name} failed:`, error);
        });
      };
    } else {
      return;
    }
    Object.defineProperty(this, name, descriptor);
  }

  #defineEvent(name) {
    const handler = `On${name.replace(/^On/, "")}`;
    if (handler in this) return;
    Object.defineProperty(this, handler, {
      enumerable: true,
      get: () => this.#handlers[name] ?? null,
      set: (fn) => {
        this.#handlers[name] = typeof fn === "function" ? fn : undefined;
      },
    });
  }
}

function unwrap(reply) {
  if (!reply || typeof reply !== "object") throw new Error("the agent answered something that is not a reply");
  if (!reply.ok) throw new VelmoraError(reply.error?.number, reply.error?.description);
  return reply.value;
}

function withTimeout(promise, ms, message, onTimeout) {
  let timer;
  const timeout = new Promise((_, reject) => {
    timer = setTimeout(() => {
      onTimeout?.();
      reject(new Error(message));
    }, ms);
  });
  return Promise.race([promise, timeout]).finally(() => clearTimeout(timer));
}
