// The synthetic program: the newer compilers' shapes (scoped names, t_block_begin3, t_symbol_def2
// locals with location lists) repeated module after module until the file has the requested size.
#include "tools/ubrofgen/Synthetic.h"

#include "tools/ubrofgen/ProgramBuilder.h"

#include <cstdio>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

namespace ubrof::gen {
namespace {

constexpr uint32_t kFunctionsPerModule = 40;
constexpr uint32_t kMaxBlockDepth = 3;

// Base type indices of the built-in table.
constexpr uint16_t kBaseTypes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr uint16_t kVoid = 12;

// The pool of the program's own types.
constexpr uint16_t kStructCount = 48;
constexpr uint16_t kArrayCount = 16;
constexpr uint16_t kFirstArray = 100;                        // arrays of base types
constexpr uint16_t kFirstStruct = kFirstArray + kArrayCount; // structures
constexpr uint16_t kFirstDataStruct = kFirstStruct + kStructCount; // a structure in data memory
constexpr uint16_t kFirstStructPtr = kFirstDataStruct + kStructCount;
constexpr uint16_t kFirstStructArray = kFirstStructPtr + kStructCount;
constexpr uint16_t kFirstTypedef = kFirstStructArray + kStructCount;
constexpr uint16_t kVoidFn = kFirstTypedef + kStructCount;
constexpr uint8_t kMemData = 0, kMemFlash = 1;

constexpr uint8_t kPublic = 2, kFrame = 7, kRegister = 8;
constexpr uint16_t kCodeSpace = 0, kDataSpace = 2;

/// xorshift32: the same seed gives the same program on every machine.
class Random {
public:
    explicit Random(uint32_t seed) : state_(seed * 2654435761u + 0x9E3779B9u) {}
    uint32_t next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }
    /// A number in [low, high].
    uint32_t between(uint32_t low, uint32_t high) { return low + next() % (high - low + 1); }
    bool chance(uint32_t percent) { return next() % 100 < percent; }

private:
    uint32_t state_;
};

void definePool(ProgramBuilder& b, Random& random)
{
    UbrofWriter& w = b.w;
    w.defPtrTypes();
    w.memInfo(kMemData, "data", 2);
    w.memInfo(kMemFlash, "flash", 2);
    for (uint16_t i = 0; i < kArrayCount; ++i) {
        const uint16_t element = kBaseTypes[i % std::size(kBaseTypes)];
        w.typeArray(kFirstArray + i, element, 2 * (i + 2), i + 2);
    }
    for (uint16_t i = 0; i < kStructCount; ++i) {
        std::vector<WriterStructMember> members;
        uint32_t offset = 0;
        for (uint32_t m = 0, count = random.between(2, 8); m < count; ++m) {
            uint16_t type = kBaseTypes[random.next() % std::size(kBaseTypes)];
            if (i > 0 && random.chance(20))
                type = kFirstStructPtr + static_cast<uint16_t>(random.next() % i);
            else if (random.chance(15))
                type = kFirstArray + static_cast<uint16_t>(random.next() % kArrayCount);
            members.push_back({"field" + std::to_string(m), type, offset});
            offset += 4;
        }
        b.structType(kFirstStruct + i, "record" + std::to_string(i), offset, members);
    }
    for (uint16_t i = 0; i < kStructCount; ++i) {
        w.typeInMemory(kFirstDataStruct + i, 42, kMemData, kFirstStruct + i);
        w.typePointer(kFirstStructPtr + i, 15, kFirstDataStruct + i);
        w.typeArray(kFirstStructArray + i, kFirstStruct + i, 4 * (i + 1), 4);
        w.typeTypedef(kFirstTypedef + i, kFirstStruct + i, b.scoped("record" + std::to_string(i) + "_t"));
    }
    w.typeFunction(kVoidFn, kVoid, 0, {});
}

uint16_t variableType(Random& random)
{
    switch (random.next() % 6) {
    case 0: return kFirstStruct + static_cast<uint16_t>(random.next() % kStructCount);
    case 1: return kFirstStructPtr + static_cast<uint16_t>(random.next() % kStructCount);
    case 2: return kFirstStructArray + static_cast<uint16_t>(random.next() % kStructCount);
    case 3: return kFirstTypedef + static_cast<uint16_t>(random.next() % kStructCount);
    case 4: return kFirstArray + static_cast<uint16_t>(random.next() % kArrayCount);
    default: return kBaseTypes[random.next() % std::size(kBaseTypes)];
    }
}

/// One function, planned before it is written so that its symbol can name its address first.
struct FunctionPlan {
    std::vector<uint8_t> statementBytes;
    uint32_t codeBytes = 0;
};

FunctionPlan planFunction(Random& random)
{
    FunctionPlan plan;
    for (uint32_t s = 0, count = random.between(19, 53); s < count; ++s) {
        plan.statementBytes.push_back(static_cast<uint8_t>(random.between(2, 9)));
        plan.codeBytes += plan.statementBytes.back();
    }
    return plan;
}

/// A t_symbol_def2 local whose register is spilled to the frame part-way into its scope.
void local(ProgramBuilder& b, Random& random, uint32_t scopeName, uint32_t number, uint32_t from,
           SyntheticShape& shape)
{
    const uint32_t name = b.scoped("v" + std::to_string(number), scopeName);
    const uint32_t reg = 16 + random.between(0, 15);
    const uint32_t frame = random.between(0, 63);
    b.w.symbolDef2(name, kRegister, kCodeSpace, reg, variableType(random),
                   {{from, kRegister, kCodeSpace, reg}, {from + 2 * random.between(1, 8), kFrame, kDataSpace, frame}});
    ++shape.locals;
}

void writeFunction(ProgramBuilder& b, Random& random, const std::string& name, const FunctionPlan& plan,
                   uint16_t& line, SyntheticShape& shape)
{
    UbrofWriter& w = b.w;
    const uint32_t entry = b.codeAddress();
    const uint32_t nameIndex = b.scoped(name);
    w.blockBegin3(nameIndex);
    for (uint32_t i = 0, count = random.between(2, 3); i < count; ++i)
        local(b, random, nameIndex, i, entry, shape);
    ++shape.functions;

    // Ends of the open blocks, innermost last.
    std::vector<size_t> open;
    uint32_t blockNumber = 0;
    const size_t count = plan.statementBytes.size();
    for (size_t s = 0; s < count; ++s) {
        while (!open.empty() && open.back() == s) {
            w.blockEnd();
            open.pop_back();
        }
        const size_t end = open.empty() ? count : open.back();
        if (open.size() < kMaxBlockDepth && end - s >= 4 && random.chance(open.empty() ? 6 : 12)) {
            open.push_back(s + random.between(2, static_cast<uint32_t>(end - s - 1)));
            w.blockBegin3(b.scopedBlock(nameIndex, ++blockNumber));
            local(b, random, nameIndex, 10 + blockNumber, b.codeAddress(), shape);
            ++shape.blocks;
            if (open.size() > shape.maxDepth)
                shape.maxDepth = static_cast<uint32_t>(open.size());
        }
        const uint16_t last = line + (random.chance(10) ? 1 : 0);
        b.statement(line, last, plan.statementBytes[s]);
        line = last + 1;
        ++shape.statements;
    }
    for (; !open.empty(); open.pop_back())
        w.blockEnd();
    b.blockEnd();
}

} // namespace

SyntheticShape writeSyntheticProgram(const std::string& path, uint64_t size, uint32_t seed)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::fopen(path.c_str(), "wb"), &std::fclose);
    if (!out)
        throw std::runtime_error("cannot write " + path);
    SyntheticShape shape;
    ProgramBuilder b;
    // Written out and dropped module by module, so that the generator's own memory stays small.
    auto flush = [&] {
        const std::vector<uint8_t>& bytes = b.w.bytes();
        if (std::fwrite(bytes.data(), 1, bytes.size(), out.get()) != bytes.size())
            throw std::runtime_error("cannot write " + path);
        shape.bytes += bytes.size();
        b.w = UbrofWriter();
    };

    Random random(seed);
    b.w.begFile1(kFixedDate).version(8);
    definePool(b, random);
    uint32_t dataAddress = 0x0100;
    b.codeAt(0);
    // End, t_ubrof_eof and a margin: the last function is left out when it would overshoot.
    constexpr uint64_t kClosing = 8;
    uint64_t lastFunctionBytes = 0;
    bool full = false;
    for (uint32_t m = 0; !full; ++m) {
        const std::string module = "m" + std::to_string(m);
        b.w.begPgm(module, kFixedDate).aux1("5.30");
        b.w.fileRef(0, "C:\\work\\synthetic\\src\\" + module + ".c", kFixedDate);
        for (uint32_t g = 0; g < 4; ++g) {
            b.symbol({module + "_g" + std::to_string(g), kPublic, kDataSpace, dataAddress, variableType(random), {}});
            dataAddress += 16;
            ++shape.globals;
        }

        std::vector<FunctionPlan> plans;
        for (uint32_t f = 0; f < kFunctionsPerModule; ++f)
            plans.push_back(planFunction(random));
        uint32_t address = b.codeAddress();
        for (uint32_t f = 0; f < kFunctionsPerModule; ++f) {
            b.symbol({module + "_f" + std::to_string(f), kPublic, kCodeSpace, address, kVoidFn, {}});
            address += plans[f].codeBytes;
        }
        uint16_t line = 1;
        for (uint32_t f = 0; f < kFunctionsPerModule; ++f) {
            const uint64_t before = shape.bytes + b.w.size();
            if (shape.functions > 0 && before + lastFunctionBytes + kClosing > size) {
                full = true;
                break;
            }
            writeFunction(b, random, module + "_f" + std::to_string(f), plans[f], line, shape);
            shape.codeBytes += plans[f].codeBytes;
            lastFunctionBytes = shape.bytes + b.w.size() - before;
            line += 3;
        }
        b.w.end();
        ++shape.modules;
        flush();
    }
    b.w.eof();
    flush();
    if (std::fflush(out.get()) != 0)
        throw std::runtime_error("cannot write " + path);
    return shape;
}

} // namespace ubrof::gen
