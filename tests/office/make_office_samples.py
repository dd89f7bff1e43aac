#!/usr/bin/python3
# Writes the workbook and the presentation the office tests import (tests/data/office),
# through LibreOffice's UNO bridge. Run again only to change them:
#   tests/office/make_office_samples.py OUTPUT_FOLDER PICTURE.png
# Run with Debian's own Python, which has the uno module.
import os, signal, subprocess, sys, tempfile, time, uno
from com.sun.star.awt import Point, Size
from com.sun.star.beans import PropertyValue
from com.sun.star.table import BorderLine2


def prop(name, value):
    p = PropertyValue()
    p.Name, p.Value = name, value
    return p


def connect(profile):
    pipe = "velmora-samples-%d" % time.time_ns()
    office = subprocess.Popen(["soffice", "-env:UserInstallation=" + uno.systemPathToFileUrl(profile), "--headless",
                               "--invisible", "--norestore", "--accept=pipe,name=%s;urp;" % pipe],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    local = uno.getComponentContext()
    resolver = local.ServiceManager.createInstanceWithContext("com.sun.star.bridge.UnoUrlResolver", local)
    for _ in range(600):
        try:
            return office, resolver.resolve("uno:pipe,name=%s;urp;StarOffice.ComponentContext" % pipe)
        except Exception:
            time.sleep(0.1)
    raise RuntimeError("LibreOffice did not start")


def picture(remote, document, url, size, position):
    provider = remote.ServiceManager.createInstanceWithContext("com.sun.star.graphic.GraphicProvider", remote)
    shape = document.createInstance("com.sun.star.drawing.GraphicObjectShape")
    shape.Graphic = provider.queryGraphic((prop("URL", url),))
    return shape, size, position


def workbook(desktop, remote, out, picture_url):
    book = desktop.loadComponentFromURL("private:factory/scalc", "_blank", 0, (prop("Hidden", True),))
    sheets = book.Sheets
    sheets.getByIndex(0).Name = "Prices"
    for i, name in enumerate(["Hidden", "Empty", "Notes"]):
        sheets.insertNewByName(name, i + 1)
    prices = sheets.getByIndex(0)
    prices.getCellRangeByName("A1:C1").merge(True)
    prices.getCellByPosition(0, 0).String = "Price list"
    line = BorderLine2()
    line.OuterLineWidth, line.Color = 26, 0x336699
    money = book.NumberFormats.queryKey("#,##0.00 [$EUR]", book.CharLocale, False)
    if money == -1:
        money = book.NumberFormats.addNew("#,##0.00 [$EUR]", book.CharLocale)
    for row, (item, price) in enumerate([("Tea", 3.5), ("Coffee", 4.25)], start=1):
        prices.getCellByPosition(0, row).String = item
        cell = prices.getCellByPosition(1, row)
        cell.Value, cell.NumberFormat = price, money
        cell.TopBorder = cell.BottomBorder = cell.LeftBorder = cell.RightBorder = line
    prices.Columns.getByIndex(0).Width = 4000
    shape, size, position = picture(remote, book, picture_url, Size(1500, 1000), Point(6000, 500))
    prices.DrawPage.add(shape)
    shape.Size, shape.Position = size, position
    hidden = sheets.getByIndex(1)
    hidden.getCellByPosition(0, 0).String = "secret"
    hidden.IsVisible = False
    sheets.getByIndex(3).getCellByPosition(1, 1).String = "价格 notes"
    book.storeToURL(uno.systemPathToFileUrl(os.path.join(out, "workbook.xlsx")),
                    (prop("FilterName", "Calc MS Excel 2007 XML"),))
    book.close(True)


def presentation(desktop, out):
    deck = desktop.loadComponentFromURL("private:factory/simpress", "_blank", 0, (prop("Hidden", True),))
    pages = deck.DrawPages
    for i in range(11):
        pages.insertNewByIndex(i)
    for i in range(12):
        text = deck.createInstance("com.sun.star.drawing.TextShape")
        pages.getByIndex(i).add(text)
        text.Size, text.Position = Size(20000, 3000), Point(2000, 2000)
        text.String = "Slide %d" % (i + 1)
    deck.storeToURL(uno.systemPathToFileUrl(os.path.join(out, "slides.pptx")),
                    (prop("FilterName", "Impress MS PowerPoint 2007 XML"),))
    deck.close(True)


out, picture_path = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
with tempfile.TemporaryDirectory() as profile:
    office, remote = connect(profile)
    try:
        desktop = remote.ServiceManager.createInstanceWithContext("com.sun.star.frame.Desktop", remote)
        workbook(desktop, remote, out, uno.systemPathToFileUrl(picture_path))
        presentation(desktop, out)
    finally:
        os.killpg(office.pid, signal.SIGKILL)
        office.wait()
