#pragma once
#include <memory>

#include "core/Producers.h"

namespace velmora {

// The document and workbook engines: conversion by the office program (documents on
// LibreOffice; workbooks not part of this build yet: those members fail with the creation
// word) and the clean-up pipelines, which run without any office program.
std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine);
std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine);

}  // namespace velmora
