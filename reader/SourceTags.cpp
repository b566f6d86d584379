// Source-file and line tags: declared and embedded source files, statements.
#include "reader/CParser.h"

#include "reader/EmbeddedSourceFile.h"
#include "reader/OleDate.h"
#include "reader/ReaderError.h"
#include "reader/SourceFiles.h"

#include <boost/filesystem.hpp>

#include <locale>
#include <optional>

namespace ubrof {
namespace {

// Two spellings of one file name must land on one record, as the file systems the
// compilers ran on ignore case.
std::string fileKey(const std::string& name)
{
    const std::locale locale;
    std::string key = name;
    for (char& c : key)
        c = std::tolower(c, locale);
    return key;
}

// The last component only: an embedded file's name comes from the object file, and no
// name may place the copy outside the directory the copies go to.
std::string finalComponent(const std::string& name)
{
    const size_t separator = name.find_last_of("/\\");
    return separator == std::string::npos ? name : name.substr(separator + 1);
}

} // namespace

uint32_t registerSourceFile(FileIndex& fileIndex, std::vector<SourceFileRecord>& sourceFiles,
                            SourceFileRecord record)
{
    std::string key = fileKey(record.name);
    const auto found = fileIndex.find(key);
    if (found != fileIndex.end())
        return found->second;
    const uint32_t index = static_cast<uint32_t>(sourceFiles.size());
    fileIndex.emplace(std::move(key), index);
    sourceFiles.push_back(std::move(record));
    return index;
}

void setModuleFile(BlockTree& tree, uint32_t reference, uint32_t file)
{
    if (tree.currentTopLevel >= 0)
        tree.setModuleFile(static_cast<uint32_t>(tree.currentTopLevel), reference, file);
}

int CParser::handleFileRef()
{
    const uint32_t reference = readWord16();
    SourceFileRecord record;
    record.name = readString(readWord16());
    uint8_t date[6];
    readBytes(date, sizeof date);
    if (!toOleDate(date[5] + 1900u, date[4], date[3], date[2], date[1], date[0], record.timestamp))
        record.timestamp = 0.0;
    const uint32_t index = registerSourceFile(fileIndex_, sourceFileTable_, std::move(record));
    setModuleFile(blockTree_, reference, index);
    if (reference == 0) {
        currentFile = static_cast<int32_t>(index);
        startNewLineRange = true;
    }
    return 0;
}

int CParser::handleNewFile()
{
    const uint32_t reference = readWord16();
    currentFile = -1;
    if (blockTree_.currentTopLevel >= 0)
        currentFile = static_cast<int32_t>(blockTree_.moduleFile(static_cast<uint32_t>(blockTree_.currentTopLevel), reference));
    startNewLineRange = true;
    return 0;
}

int CParser::handleFile()
{
    const uint32_t lineCount = readWord16();
    const std::string stored = readString(readByte());
    const std::string base = finalComponent(stored);
    const size_t dot = base.rfind('.');
    std::string stem = dot == std::string::npos ? base : base.substr(0, dot);
    const std::string extension = dot == std::string::npos ? std::string() : base.substr(dot);

    // The suffix also keeps the copy's name from ever being "." or "..".
    const auto seen = embeddedNameCounts.find(stem);
    if (seen == embeddedNameCounts.end()) {
        embeddedNameCounts.emplace(stem, 0);
        stem += "_emb";
    } else {
        stem += "_emb" + std::to_string(++seen->second);
    }

    namespace fs = boost::filesystem;
    const fs::path parent = fs::path(fileName_).parent_path();
    std::string name = (parent / EmbeddedSourceFile::kFolder / (stem + extension)).string();

    // Without a copy on disk the debugger merely shows no text; the statements still count.
    // Real programs embed a handful of files; past kMaxEmbeddedCopies a hostile file could
    // otherwise turn every few bytes of its own into a file on the user's disk. Past the cap
    // the record keeps the name the file stored, as a declared file does, and names no copy:
    // the copy's name may still hold an earlier parse's text, which must never pass for this
    // file's.
    std::optional<EmbeddedSourceFile> copy;
    if (embeddedCopies < kMaxEmbeddedCopies) {
        ++embeddedCopies;
        copy.emplace(parent.string(), stem + extension);
    } else {
        name = stored;
    }
    static const uint8_t lineEnd[] = {'\r', '\n'};
    std::vector<uint8_t> line;
    for (uint32_t i = 0; i < lineCount; ++i) {
        line.resize(readWord16());
        if (!line.empty())
            readBytes(line.data(), static_cast<uint32_t>(line.size()));
        if (copy) {
            copy->append(line.data(), line.size());
            copy->append(lineEnd, sizeof lineEnd);
        }
    }
    if (copy)
        copy->commit();

    SourceFileRecord record;
    record.name = std::move(name);
    record.isEmbedded = 1;
    const uint32_t index = registerSourceFile(fileIndex_, sourceFileTable_, std::move(record));
    setModuleFile(blockTree_, 0, index);
    currentFile = static_cast<int32_t>(index);
    startNewLineRange = true;
    return 0;
}

int CParser::handleSrcStat()
{
    dropPendingLineRecord();
    if (startNewLineRange) {
        startNewLineRange = false;
        const uint32_t range = static_cast<uint32_t>(fileLineRanges_.size());
        if (blockTree_.current >= 0)
            blockTree_.addLineRange(static_cast<uint32_t>(blockTree_.current), range);
        if (currentFile >= 0 && static_cast<size_t>(currentFile) < sourceFileTable_.size())
            sourceFileTable_[static_cast<size_t>(currentFile)].lineRanges.push_back(range);
        FileLineRange opened;
        opened.file = currentFile;
        opened.firstLineRecord = static_cast<uint32_t>(lineTable_.size());
        fileLineRanges_.push_back(opened);
    }

    uint32_t firstLine, firstColumn, lastLine, lastColumn, kind;
    if (end_ - next_ >= 9) {
        // Every statement of the file passes here: its fields are read with one check.
        const uint8_t* field = next_;
        firstLine = uint32_t(field[0]) << 8 | field[1];
        firstColumn = uint32_t(field[2]) << 8 | field[3];
        lastLine = uint32_t(field[4]) << 8 | field[5];
        lastColumn = uint32_t(field[6]) << 8 | field[7];
        kind = field[8];
        next_ += 9;
    } else {
        firstLine = readWord16();
        firstColumn = readWord16();
        lastLine = readWord16();
        lastColumn = readWord16();
        kind = readByte();
    }

    // The span (last line - first line, modulo 2^32) is kept as the last line it leads to. A
    // light model counts a range's statements and reads none.
    if (!lightParse())
        lineTable_.pushStatement(codeAddress, static_cast<uint16_t>(firstLine), static_cast<uint16_t>(lastLine),
                                 static_cast<uint16_t>(firstColumn), static_cast<uint16_t>(lastColumn),
                                 kind == 14 ? 3 : (kind == 9 || kind == 13) ? 5 : 1);
    pendingLineRecord = true;

    FileLineRange& range = fileLineRanges_.back();
    ++range.lineRecordCount;
    if (static_cast<int32_t>(lastLine) > range.maxLine)
        range.maxLine = static_cast<int32_t>(lastLine);
    return 0;
}

int CParser::handleSourceRange()
{
    // Only the model reads where a definition stands; a cut tag is left to fail as it always did.
    if (!facts_ || facts_->light || remaining() < 14) {
        skipBytes(14);
        return 0;
    }
    const uint32_t reference = readWord16();
    const uint32_t line = readWord32();
    const uint32_t column = readWord16();
    skipBytes(6);
    if (symbolTable_.symbols.empty())
        return 0;
    ProgramFacts::SourcePosition position;
    position.symbol = static_cast<uint32_t>(symbolTable_.symbols.size() - 1);
    if (blockTree_.currentTopLevel >= 0)
        position.file = blockTree_.moduleFile(static_cast<uint32_t>(blockTree_.currentTopLevel), reference);
    position.line = line;
    position.column = column;
    facts_->sourcePositions.push_back(position);
    return 0;
}

} // namespace ubrof
