// The tags of format versions 10 and 11: source files and positions, stack use, function sizes and
// line programs, and the hooks through which the older handlers place what those files hold.
//
// What has a place in the store goes there only for these versions: a module's source files, the
// code range of each function block, and the statement rows of each function as line records.
// The rest (positions, stack use, sizes, the rows themselves) goes to the facts, when kept.
#include "reader/CParser.h"

#include "reader/ByteCursor.h"
#include "reader/OleDate.h"
#include "reader/ReaderError.h"
#include "reader/SourceFiles.h"
#include "reader/TagCodes.h"

#include <algorithm>
#include <optional>
#include <tuple>

namespace ubrof {

const CParser::NewerTagEntry CParser::newerTagTable[] = {
#define UBROF_NEWER_TAG(code, name, skipCode, handler) {code, skipCode, &CParser::handler, #name},
#include "reader/NewerTags.def"
#undef UBROF_NEWER_TAG
};

namespace {

std::string atByte(const ByteCursorError& error)
{
    return std::string(error.what) + " at byte " + std::to_string(error.offset) + " of its body";
}

// Code ranges end at the top of the 32-bit address space, however far a size reaches.
uint32_t endOf(uint32_t address, uint64_t size)
{
    return static_cast<uint32_t>(std::min<uint64_t>(uint64_t(address) + size, 0xFFFFFFFFu));
}

const char* formName(uint32_t form)
{
    switch (form) {
    case 0:
        return "a shared code fragment";
    case 1:
    case 3:
        return "inlined code";
    default:
        return "a record of an unknown form";
    }
}

} // namespace

std::string CParser::refusedVersionReason(uint8_t version, bool newerAccepted)
{
    const std::string number = std::to_string(version);
    if (!newerAccepted)
        return "format version " + number + " is not read unless newer versions are enabled";
    if (version == 9)
        return "format version 9 is not read: no file of that version is known, so neither is its layout";
    return "format version " + number + " is newer than 11, the last version this reader knows";
}

bool CParser::readNewerTag(uint8_t code)
{
    if (!isNewerFormat())
        return false;
    const NewerTagEntry* entry = nullptr;
    for (const NewerTagEntry& candidate : newerTagTable)
        if (candidate.code == code)
            entry = &candidate;
    if (!entry)
        return false;
    int32_t declared = -1;
    for (const auto& [tag, skip] : skipInfo_) {
        if (tag == code) {
            declared = skip;
            break;
        }
    }
    if (declared != entry->skipCode)
        return false;
    if ((this->*entry->handler)() != 0)
        throw ReaderError{kTagProcessingError};
    return true;
}

uint64_t CParser::declaredEnd(uint8_t code)
{
    // t_grp's length covers the tags of its group, not its own fields.
    if (code == uint8_t(Tag::t_grp))
        return 0;
    uint32_t width = 0;
    for (const auto& [tag, skip] : skipInfo_) {
        if (tag == code) {
            width = skip == 0xFD ? 1 : skip == 0xFE ? 2 : skip == 0xFF ? 4 : 0;
            break;
        }
    }
    if (width == 0 || width > remaining())
        return 0;
    // The handler reads the length as an ignored field; it is peeked here and read again there.
    const uint64_t start = tell();
    uint64_t length = 0;
    for (uint32_t i = 0; i < width; ++i)
        length = length << 8 | readByte();
    seek(start);
    return start + width + length;
}

std::vector<uint8_t> CParser::readCountedBody()
{
    const uint32_t count = readVarNumber();
    // Checked before anything is allocated, so a hostile count costs nothing.
    if (count > remaining())
        throw ReaderError{kUnexpectedEndOfFile};
    std::vector<uint8_t> body(count);
    if (count != 0)
        readBytes(body.data(), count);
    return body;
}

void CParser::note(uint64_t offset, std::string text)
{
    if (facts_)
        facts_->newer.notes.push_back({offset, std::move(text)});
}

// ---- Hooks of the older handlers.

void CParser::noteCodeOrigin(uint32_t address)
{
    if (isNewerFormat())
        newer_.codeOrigin = address;
}

void CParser::noteCodeBytes(uint32_t count)
{
    // These files have no statement records to widen a block, but each function's and block's
    // code is written while it is open. Module-level bytes (vectors, constants) widen no module,
    // which would otherwise reach over the modules placed between them.
    if (!isNewerFormat() || count == 0 || blockTree_.current < 0)
        return;
    const uint32_t block = static_cast<uint32_t>(blockTree_.current);
    if (blockTree_.blocks[block].kind != ModuleBlock)
        blockTree_.widenBlock(block, codeAddress, endOf(codeAddress, count));
}

void CParser::noteSymbolDefined(uint32_t symbol)
{
    if (!isNewerFormat())
        return;
    newer_.subject = NewerState::Subject::Symbol;
    newer_.subjectIndex = symbol;
}

void CParser::noteBlockBegun(uint32_t block)
{
    if (!isNewerFormat())
        return;
    newer_.subject = NewerState::Subject::Block;
    newer_.subjectIndex = block;
    const BlockRecord& record = blockTree_.blocks[block];
    if (record.kind != FunctionBlock || record.nameIndex < 0)
        return;
    // A function's size and rows come before its block, at module level; its prologue is
    // written before the block begins, so the size, not the bytes, gives the whole range.
    const uint32_t name = static_cast<uint32_t>(record.nameIndex);
    const auto extent = newer_.extents.find(name);
    if (extent != newer_.extents.end() && extent->second.size != 0)
        blockTree_.widenBlock(block, extent->second.address,
                              endOf(extent->second.address, extent->second.size));
    const auto program = newer_.programs.find(name);
    if (program != newer_.programs.end()) {
        appendLineRecords(block, program->second.first, program->second.second);
        newer_.programs.erase(program);
    }
}

void CParser::noteModuleBegun()
{
    if (isNewerFormat())
        newer_.beginModule();
}

void CParser::noteModuleEnded()
{
    if (!isNewerFormat())
        return;
    // Rows of a function without a block of its own still belong to the module.
    if (blockTree_.currentTopLevel >= 0) {
        for (const auto& [name, program] : newer_.programs)
            appendLineRecords(static_cast<uint32_t>(blockTree_.currentTopLevel), program.first, program.second);
    }
    newer_.beginModule();
}

void CParser::readNewerSegmentInfo()
{
    skipBytes(4);
    const uint32_t segments = readWord16();
    for (uint32_t i = 0; i < segments; ++i) {
        NewerFormatFacts::Segment segment;
        readBytes(segment.leading.data(), static_cast<uint32_t>(segment.leading.size()));
        segment.name = readString(readByte());
        const uint32_t ranges = readVarNumber();
        if (uint64_t(ranges) * 8 > remaining())
            throw ReaderError{kUnexpectedEndOfFile};
        for (uint32_t r = 0; r < ranges; ++r) {
            const uint32_t address = readWord32();
            const uint32_t size = readWord32();
            if (facts_)
                segment.ranges.emplace_back(address, size);
        }
        if (facts_)
            facts_->newer.segments.push_back(std::move(segment));
    }
}

void CParser::appendLineRecords(uint32_t block, const std::vector<PlacedStatement>& rows, uint32_t end)
{
    for (size_t i = 0; i < rows.size(); ++i) {
        const PlacedStatement& row = rows[i];
        // A run of rows of one file is one range, as a run of t_src_stat after a file switch is.
        if (i == 0 || row.file != rows[i - 1].file) {
            const uint32_t range = static_cast<uint32_t>(fileLineRanges_.size());
            blockTree_.addLineRange(block, range);
            FileLineRange opened;
            opened.file = -1;
            if (row.file < sourceFileTable_.size()) {
                opened.file = static_cast<int32_t>(row.file);
                sourceFileTable_[row.file].lineRanges.push_back(range);
            }
            opened.firstLineRecord = static_cast<uint32_t>(lineTable_.size());
            fileLineRanges_.push_back(opened);
        }
        const uint32_t next = i + 1 < rows.size() ? rows[i + 1].address : end;
        LineRecord record;
        record.address = row.address;
        record.size = next > row.address ? next - row.address : 0;
        record.line = row.line;
        record.lineSpan = row.endLine - row.line;
        record.column = row.column;
        record.endColumn = row.endColumn;
        record.flags = 1;
        lineTable_.push_back(record);
        FileLineRange& range = fileLineRanges_.back();
        ++range.lineRecordCount;
        range.maxLine = std::max<int32_t>(range.maxLine, static_cast<int32_t>(std::min<uint32_t>(row.endLine, INT32_MAX)));
    }
}

// ---- The tags.

int CParser::handleStackUseCount()
{
    // The number of t_stack_use tags that follow; they speak for themselves.
    readWord32();
    return 0;
}

int CParser::handleSymbolPosition()
{
    NewerFormatFacts::SymbolSource source;
    const uint32_t file = readWord32();
    source.line = readWord16();
    readBytes(source.flags.data(), static_cast<uint32_t>(source.flags.size()));
    if (newer_.subject != NewerState::Subject::Symbol) {
        note(failure_.tagOffset, "t_symbol_position after no symbol");
        return 0;
    }
    source.symbol = newer_.subjectIndex;
    if (file < newer_.moduleFiles.size())
        source.file = newer_.moduleFiles[file];
    if (facts_ && !facts_->light)
        facts_->newer.symbolSources.push_back(source);
    return 0;
}

int CParser::handleSourcePosition()
{
    const std::vector<uint8_t> body = readCountedBody();
    PlacedExtent position;
    try {
        ByteCursor cursor(body.data(), body.size());
        position.extent.line = cursor.varNumber();
        position.extent.column = cursor.varNumber();
        position.extent.extraLines = cursor.varNumber();
        position.extent.lastColumn = cursor.varNumber();
        if (!cursor.atEnd())
            failTag(std::to_string(cursor.remaining()) + " bytes after the position");
    } catch (const ByteCursorError& error) {
        failTag(atByte(error));
    }
    if (newer_.subject == NewerState::Subject::None) {
        note(failure_.tagOffset, "t_source_position after no symbol or block");
        return 0;
    }
    const auto [file, line] = newer_.includeTree.locate(position.extent.line);
    position.line = line;
    if (file < newer_.moduleFiles.size())
        position.file = newer_.moduleFiles[file];
    if (facts_ && !facts_->light)
        facts_->newer.positions.push_back(
            {newer_.subject == NewerState::Subject::Block, newer_.subjectIndex, position});
    return 0;
}

int CParser::handleStackUse()
{
    const std::vector<uint8_t> body = readCountedBody();
    NewerFormatFacts::StackUse use;
    try {
        ByteCursor cursor(body.data(), body.size());
        use.segment = cursor.varNumber();
        use.bytes = cursor.varNumber();
        cursor.varNumber(); // always 0 in the known files
        if (!cursor.atEnd())
            failTag(std::to_string(cursor.remaining()) + " bytes after the stack use");
    } catch (const ByteCursorError& error) {
        failTag(atByte(error));
    }
    if (newer_.subject != NewerState::Subject::Symbol) {
        note(failure_.tagOffset, "t_stack_use after no function");
        return 0;
    }
    use.symbol = newer_.subjectIndex;
    if (facts_ && !facts_->light)
        facts_->newer.stackUses.push_back(use);
    return 0;
}

int CParser::handleFunctionInfo()
{
    const uint64_t offset = failure_.tagOffset;
    const std::vector<uint8_t> body = readCountedBody();
    // Only kind 3 is understood: `03 ?? SIZE ID`, more bytes following. Kinds 2, 5 and 6 are
    // passed over, as their length allows.
    uint32_t size = 0;
    uint32_t nameId = 0;
    try {
        ByteCursor cursor(body.data(), body.size());
        if (cursor.varNumber() != 3)
            return 0;
        cursor.varNumber();
        size = cursor.varNumber();
        nameId = cursor.varNumber();
    } catch (const ByteCursorError& error) {
        note(offset, "t_function_info not understood: " + atByte(error));
        return 0;
    }
    if (nameId == 0)
        return 0;
    const uint32_t name = nameId - 1;
    newer_.extents.emplace(name, NewerState::Extent{newer_.codeOrigin, size});
    if (facts_ && !facts_->light) {
        const uint32_t module = moduleTable_.empty() ? kNoIndex : static_cast<uint32_t>(moduleTable_.size() - 1);
        facts_->newer.functionSizes.push_back({module, name, newer_.codeOrigin, size});
    }
    return 0;
}

int CParser::handleSourceFiles()
{
    const std::vector<uint8_t> body = readCountedBody();
    std::vector<std::string> directories;
    std::vector<SourceFileRecord> files;
    std::vector<uint32_t> lineCounts;
    std::vector<IncludeStep> steps;
    try {
        ByteCursor cursor(body.data(), body.size());
        // Every count is checked against the body by the reads themselves: nothing is
        // reserved from a count.
        for (uint32_t n = cursor.varNumber(); n != 0; --n)
            directories.push_back(cursor.text(cursor.varNumber()));
        for (uint32_t n = cursor.varNumber(); n != 0; --n) {
            cursor.byte(); // always 0
            SourceFileRecord file;
            file.name = cursor.text(cursor.varNumber());
            const uint32_t directory = cursor.varNumber(); // from 1; 0: none
            if (directory != 0 && directory <= directories.size())
                file.name = directories[directory - 1] + file.name;
            uint8_t time[6];
            for (uint8_t& byte : time)
                byte = cursor.byte();
            if (!toOleDate(time[5] + 1900u, time[4], time[3], time[2], time[1], time[0], file.timestamp))
                file.timestamp = 0.0;
            lineCounts.push_back(cursor.varNumber());
            files.push_back(std::move(file));
        }
        while (!cursor.atEnd()) {
            const uint8_t step = cursor.byte();
            if (step == 1) {
                const uint32_t line = cursor.varNumber();
                steps.push_back({true, line, cursor.varNumber()});
            } else if (step == 2) {
                steps.push_back({false, 0, 0});
            } else {
                failTag("include-tree step " + std::to_string(step) + " at byte " +
                        std::to_string(cursor.offset() - 1) + " of its body");
            }
        }
    } catch (const ByteCursorError& error) {
        failTag(atByte(error));
    }
    IncludeTree tree(steps, lineCounts);
    if (!tree.problem().empty())
        failTag("an include tree with " + tree.problem());

    std::vector<uint32_t> indices;
    indices.reserve(files.size());
    for (SourceFileRecord& file : files) {
        const uint32_t index = registerSourceFile(fileIndex_, sourceFileTable_, std::move(file));
        setModuleFile(blockTree_, static_cast<uint32_t>(indices.size()), index);
        indices.push_back(index);
    }
    if (facts_) {
        NewerFormatFacts::ModuleSources sources;
        sources.module = moduleTable_.empty() ? kNoIndex : static_cast<uint32_t>(moduleTable_.size() - 1);
        sources.files = indices;
        sources.lineCounts = std::move(lineCounts);
        sources.spans = tree.spans();
        facts_->newer.moduleSources.push_back(std::move(sources));
    }
    newer_.includeTree = std::move(tree);
    newer_.moduleFiles = std::move(indices);
    return 0;
}

int CParser::handleLineProgram()
{
    const uint64_t offset = failure_.tagOffset;
    const std::vector<uint8_t> body = readCountedBody();
    // A record that is not understood is noted and passed over: its length is known, so the
    // rest of the file still reads in step.
    std::string problem;
    const uint8_t kind = body.empty() ? 0 : body[0];
    if (kind == 1) {
        const std::optional<LineProgramHeader> header = parseLineProgramHeader(body.data(), body.size(), problem);
        if (!header) {
            note(offset, "a line-program header not understood: " + problem);
        } else if (header->index >= NewerState::kMaxHeaders) {
            note(offset, "a line-program header numbered " + std::to_string(header->index));
        } else {
            if (newer_.headers.size() <= header->index)
                newer_.headers.resize(header->index + 1);
            newer_.headers[header->index] = *header;
        }
        return 0;
    }
    if (kind != 2) {
        note(offset, "a line-program record of kind " + std::to_string(kind));
        return 0;
    }
    const std::optional<LineProgramRecord> record = parseLineProgramRecord(body.data(), body.size(), problem);
    if (!record) {
        note(offset, "a line-program record not understood: " + problem);
        return 0;
    }
    placeLineProgram(*record, offset);
    return 0;
}

void CParser::placeLineProgram(const LineProgramRecord& record, uint64_t offset)
{
    const uint32_t name = record.nameId == 0 ? kNoIndex : record.nameId - 1;
    const uint32_t origin = newer_.codeOrigin;
    const LineProgramHeader* header = nullptr;
    if (record.header < newer_.headers.size() && newer_.headers[record.header])
        header = &*newer_.headers[record.header];
    const uint64_t size = header ? uint64_t(record.units) * header->unit : 0;
    const uint32_t end = endOf(origin, size);

    DecodedLineProgram decoded;
    std::string why;
    if (!header) {
        why = "it names line-program header " + std::to_string(record.header) + ", which the file does not give";
    } else if (!isUnderstoodForm(record.form)) {
        why = "it is " + std::string(formName(record.form)) + " (form " + std::to_string(record.form) + ")";
    } else {
        decoded = runLineProgram(*header, record.program, record.programSize);
        if (!decoded.understood())
            why = decoded.problem + " at byte " + std::to_string(record.programOffset + decoded.problemOffset) +
                  " of its body";
    }
    if (!why.empty()) {
        const std::string text = name == kNoIndex ? std::string() : nameTable_.nameText(name);
        note(offset, "the statement rows of " + (text.empty() ? "an unnamed function" : text) +
                         " are not understood: " + why + "; they fall back to the record's own line");
    }

    auto locate = [this](uint32_t globalLine) {
        const auto [file, line] = newer_.includeTree.locate(globalLine);
        return std::make_pair(file < newer_.moduleFiles.size() ? newer_.moduleFiles[file] : kNoIndex, line);
    };
    // Rows at or past the end of the code mark jumps into shared fragments: they start no code
    // of this function. Of several rows at one address, the last one stands for it.
    std::vector<PlacedStatement> placed;
    if (why.empty()) {
        for (const LineProgramRow& row : decoded.rows) {
            if (row.offset >= size || uint64_t(origin) + row.offset > 0xFFFFFFFFu)
                continue;
            PlacedStatement statement;
            statement.address = origin + row.offset;
            std::tie(statement.file, statement.line) = locate(row.line);
            statement.endLine = statement.line + (row.endLine - row.line);
            statement.column = row.column;
            statement.endColumn = row.endColumn;
            placed.push_back(statement);
        }
        // Addresses never decrease in a well-formed program; one that does must not make a
        // line record reach backwards.
        std::stable_sort(placed.begin(), placed.end(),
                         [](const PlacedStatement& a, const PlacedStatement& b) { return a.address < b.address; });
        size_t kept = 0;
        for (size_t i = 0; i < placed.size(); ++i) {
            if (kept != 0 && placed[kept - 1].address == placed[i].address)
                --kept;
            placed[kept++] = placed[i];
        }
        placed.resize(kept);
        if (name != kNoIndex) {
            newer_.extents.emplace(name, NewerState::Extent{origin, static_cast<uint32_t>(end - origin)});
            auto& waiting = newer_.programs[name];
            waiting.first.insert(waiting.first.end(), placed.begin(), placed.end());
            waiting.second = std::max(waiting.second, end);
        }
    }

    // A light model places no code, so the rows would only cost memory.
    if (!facts_ || facts_->light)
        return;
    NewerFormatFacts& facts = facts_->newer;
    NewerFormatFacts::FunctionLines lines;
    lines.module = moduleTable_.empty() ? kNoIndex : static_cast<uint32_t>(moduleTable_.size() - 1);
    lines.nameIndex = name;
    lines.offset = offset;
    lines.address = origin;
    lines.size = end - origin;
    lines.form = record.form;
    lines.order = record.order;
    lines.extent.extent = record.extent;
    std::tie(lines.extent.file, lines.extent.line) = locate(record.extent.line);
    lines.firstRow = static_cast<uint32_t>(facts.rows.size());
    lines.understood = why.empty();
    lines.problem = why;
    const uint32_t function = static_cast<uint32_t>(facts.functionLines.size());
    if (why.empty()) {
        for (const LineProgramRow& row : decoded.rows) {
            if (row.offset >= size || uint64_t(origin) + row.offset > 0xFFFFFFFFu)
                continue;
            StatementRow statement;
            statement.function = function;
            statement.address = origin + row.offset;
            statement.globalLine = row.line;
            statement.globalEndLine = row.endLine;
            statement.column = row.column;
            statement.endColumn = row.endColumn;
            std::tie(statement.file, statement.line) = locate(row.line);
            statement.endLine = statement.line + (row.endLine - row.line);
            statement.kind = row.kind;
            statement.kindCode = row.kindCode;
            statement.fallsThrough = row.fallsThrough;
            statement.callee = row.callee;
            facts.rows.push_back(statement);
        }
    } else {
        StatementRow statement;
        statement.function = function;
        statement.address = origin;
        statement.globalLine = record.extent.line;
        statement.globalEndLine = record.extent.line;
        statement.column = record.extent.column;
        statement.endColumn = record.extent.lastColumn;
        statement.file = lines.extent.file;
        statement.line = statement.endLine = lines.extent.line;
        statement.fallback = true;
        facts.rows.push_back(statement);
    }
    lines.rowCount = static_cast<uint32_t>(facts.rows.size()) - lines.firstRow;
    facts.functionLines.push_back(lines);
}

} // namespace ubrof
