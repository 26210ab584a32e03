// A sheet of small pictures of many pages, for a person to look over.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/batch.h"
#include "tools/kfax/commands.h"
#include "tools/kfax/write/output.h"

namespace kfax {

// Writes a grey PNG with a cell of cellSize x cellSize pixels for each page of each input, row by row. A
// damaged page has a black frame, an input that cannot be read a cell crossed out. Returns an exit code.
int MakeContactSheet(const standin::Filter& filter, const BatchOptions& run, const InputOptions& in,
                     int cellSize, const Output& output);

} // namespace kfax
