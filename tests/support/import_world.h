#pragma once

// Databases imported from texts of other programs, for tests.

#include <string>
#include <vector>

#include "support/operation_world.h"

class ImportWorld : public OperationWorld {
 public:
  using OperationWorld::OperationWorld;

  // From a STIL text, kept as NAME.stil; replaces the database of that name.
  ProgramResult import(const std::string& name, const std::string& text,
                       const std::vector<std::string>& options = {});
  ProgramResult importFile(const std::string& name, const std::string& file,
                           const std::vector<std::string>& options = {});
  // Signals' events from a cycle on (the first is 1): a line of the table for each cycle,
  // in the form of cycleEvents.
  void expectEvents(const std::string& name, const std::vector<std::string>& signals,
                    std::size_t first, const std::vector<std::vector<std::string>>& table);
};

// The import went well and said nothing on standard error.
void expectImported(const ProgramResult& result);
