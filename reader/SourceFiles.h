// The source-file records the reader keeps, shared by the tags that declare a module's files.
#pragma once

#include "reader/BlockTree.h"
#include "reader/Records.h"

#include <cstdint>
#include <vector>

namespace ubrof {

/// The index of the file, appending the record only when no spelling of its name is known yet.
uint32_t registerSourceFile(FileIndex& fileIndex, std::vector<SourceFileRecord>& sourceFiles,
                            SourceFileRecord record);

/// Maps the open module's file reference number to a source file.
void setModuleFile(BlockTree& tree, uint32_t reference, uint32_t file);

} // namespace ubrof
