#!/usr/bin/python3
# Saves a copy of a document protected by a password, through LibreOffice's UNO bridge:
#   protect_document.py SOURCE TARGET FILTER PROFILE_FOLDER
# (FILTER: "MS Word 97" for .doc). Run with Debian's own Python, which has the uno module.
import os, signal, subprocess, sys, time, uno
from com.sun.star.beans import PropertyValue


def prop(name, value):
    p = PropertyValue()
    p.Name, p.Value = name, value
    return p


source, target, filter_name, profile = sys.argv[1:5]
pipe = "velmora-protect-%d" % time.time_ns()
office = subprocess.Popen(["soffice", "-env:UserInstallation=" + uno.systemPathToFileUrl(profile), "--headless",
                           "--invisible", "--norestore", "--accept=pipe,name=%s;urp;" % pipe],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
try:
    local = uno.getComponentContext()
    resolver = local.ServiceManager.createInstanceWithContext("com.sun.star.bridge.UnoUrlResolver", local)
    for _ in range(300):
        try:
            remote = resolver.resolve("uno:pipe,name=%s;urp;StarOffice.ComponentContext" % pipe)
            break
        except Exception:
            time.sleep(0.1)
    desktop = remote.ServiceManager.createInstanceWithContext("com.sun.star.frame.Desktop", remote)
    document = desktop.loadComponentFromURL(uno.systemPathToFileUrl(source), "_blank", 0, (prop("Hidden", True),))
    document.storeToURL(uno.systemPathToFileUrl(target), (prop("FilterName", filter_name), prop("Password", "secret")))
    document.close(True)
finally:
    # soffice is a launcher; the office it starts runs in the same new session.
    os.killpg(office.pid, signal.SIGKILL)
    office.wait()
