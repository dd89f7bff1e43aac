#pragma once
#include <memory>

#include "core/Producers.h"

namespace velmora {

// The document and workbook engines: conversion by the office program (LibreOffice) and
// the clean-up pipelines, which run without any office program.
std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine);
std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine);

}  // namespace velmora
