#pragma once
#include "core/Producers.h"

namespace velmora {

// The composition root of the hosts: the real producers behind the control's interfaces.
// Engines this build does not have fail as a missing component would ("CreateObject:").
class StandardProducers : public ProducerFactory {
 public:
  std::unique_ptr<WordEngine> createWordEngine(Context& context, const QString& engine) override;
  std::unique_ptr<ExcelEngine> createExcelEngine(Context& context, const QString& engine) override;
  std::unique_ptr<SlideExporter> createSlideExporter(Context& context) override;
  std::unique_ptr<DocumentPrinter> createDocumentPrinter(Context& context) override;
  std::unique_ptr<FlashHeaderReader> createFlashHeaderReader(Context& context) override;
  std::unique_ptr<QuickFormatter> createQuickFormatter(Context& context) override;
  std::unique_ptr<CaptureTool> createCaptureTool(Context& context) override;
  bool IsPrinterExist(const QString& printerName) override;
};

// The one instance the hosts share.
ProducerFactory& standardProducers();

}  // namespace velmora
