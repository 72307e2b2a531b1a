#include "logging/LoggerComponent.h"

const LoggerComponent kLogAll("All", 0xFFFFFFFF);
const LoggerComponent kLogUpdater("Updater", 0xFFFFFFFF);
const LoggerComponent kLogRulesEng("RulesEng", 0xFFFFFFFF);
const LoggerComponent kLogQnv("QNV", 0xFFFFFFFF);
const LoggerComponent kLogCatalog("Catalog", 0xFFFFFFFF);

LoggerComponent::LoggerComponent(const char* name, uint32_t defaultMask)
    : name_(name), mask_(defaultMask) {}

LoggerComponent::~LoggerComponent() = default;

std::string LoggerComponent::getName() const {
  return name_;
}

void LoggerComponent::setMask(uint32_t mask) {
  mask_ = mask;
}

uint32_t LoggerComponent::getMask() const {
  return mask_;
}
