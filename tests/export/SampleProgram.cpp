// The hand-built AVR sample program the exporter tests write out and hand to the real tools.
#include "SampleProgram.h"

#include <gtest/gtest.h>

#include <array>

namespace ubrof::test {

using model::Family;
using model::Function;
using model::kNone;
using model::LineRow;
using model::Location;
using model::MemorySpace;
using model::Program;
using model::Type;
using model::Variable;

namespace {

// The code, as an assembler places it for the ATmega16:
//   0000 __program_start:  ldi r16,0x5F / out SPL,r16 / ldi r16,0x04 / out SPH,r16
//                          ldi r28,0x00 / ldi r29,0x04 (Y: the data stack) / rjmp main
//   000E main:             lds r24,counter / subi r24,0xFF / sts counter,r24
//                          ldi r16,3 / ldi r17,0 / rcall scale
//                          sts total,r16 / sts total+1,r17 / rjmp main
//   0028 scale:            sbiw r28,2 / st Y,r16 / std Y+1,r17 (saved = x on the frame)
//                          movw r24,r16 / add r24,r24 / adc r25,r25 (doubled = x * 2 in r24:r25)
//                          ld r16,Y / ldd r17,Y+1 / add r16,r24 / adc r17,r25
//                          adiw r28,2 / ret
const std::vector<uint8_t> kCode = {
    0x0f, 0xe5, 0x0d, 0xbf, 0x04, 0xe0, 0x0e, 0xbf, 0xc0, 0xe0, 0xd4, 0xe0, 0x00, 0xc0,
    0x80, 0x91, 0x60, 0x00, 0x8f, 0x5f, 0x80, 0x93, 0x60, 0x00, 0x03, 0xe0, 0x10, 0xe0, 0x05, 0xd0,
    0x00, 0x93, 0x61, 0x00, 0x10, 0x93, 0x62, 0x00, 0xf3, 0xcf,
    0x22, 0x97, 0x08, 0x83, 0x19, 0x83, 0xc8, 0x01, 0x88, 0x0f, 0x99, 0x1f,
    0x08, 0x81, 0x19, 0x81, 0x08, 0x0f, 0x19, 0x1f, 0x22, 0x96, 0x08, 0x95,
};

Location inData(uint32_t address)
{
    return {Location::Kind::Address, MemorySpace::Data, address, 0, 0, 0};
}

Location inRegisters(uint32_t first, uint32_t count)
{
    return {Location::Kind::Register, MemorySpace::Data, 0, first, count, 0};
}

/// Adds a type; typedefs and qualifiers resolve to what they wrap, every other type to itself.
uint32_t addType(Program& program, Type::Kind kind, uint32_t target, uint32_t size, const std::string& name = "",
                 const std::string& cName = "")
{
    const uint32_t index = static_cast<uint32_t>(program.types.size());
    Type type;
    type.kind = kind;
    type.target = target;
    type.size = size;
    type.name = name;
    type.cName = cName;
    const bool wraps = kind == Type::Kind::Typedef || kind == Type::Kind::Const || kind == Type::Kind::Volatile;
    type.resolved = wraps ? program.types[target].resolved : index;
    program.types.push_back(std::move(type));
    return index;
}

uint32_t addVariable(Program& program, Variable variable)
{
    if (variable.qualifiedName.empty())
        variable.qualifiedName = variable.name;
    program.variables.push_back(std::move(variable));
    return static_cast<uint32_t>(program.variables.size() - 1);
}

Variable global(const std::string& name, uint32_t type, uint32_t size, Location location, uint32_t line)
{
    Variable variable;
    variable.name = name;
    variable.type = type;
    variable.size = size;
    variable.module = 1;
    variable.isExternal = true;
    variable.location = location;
    variable.file = 1;
    variable.line = line;
    return variable;
}

Function function(const std::string& name, uint32_t module, uint32_t entry, uint32_t end, uint32_t type,
                  bool external, uint32_t file, uint32_t line)
{
    Function f;
    f.name = f.qualifiedName = name;
    f.module = module;
    f.entry = entry;
    f.end = end;
    f.type = type;
    f.isExternal = external;
    f.file = file;
    f.line = line;
    return f;
}

/// Line rows of {address, end, file, line, function}, each a statement unless it continues the one before it.
void addRows(Program& program, std::initializer_list<std::array<uint32_t, 5>> rows, uint32_t continuation = kNone)
{
    for (const auto& [address, end, file, line, function] : rows)
        program.lines.push_back({address, end, file, line, 0, function, address != continuation});
}

} // namespace

Program sampleAvrProgram()
{
    Program program;
    program.path = "sample.d90";
    program.version = 8;
    program.processor = {Family::Avr, "ATmega16"};
    program.attributes = {{"__cpu_name", "ATmega16"}};
    program.producer = "sample compiler 1.0";
    program.entryPoint = 0;
    program.files = {{"C:\\work\\app\\cstartup.s90"}, {"C:\\work\\app\\main.c"}};

    model::MemoryImage code;
    code.space = MemorySpace::Code;
    code.name = "code";
    code.runs = {{0, kCode}};
    model::MemoryImage data;
    data.space = MemorySpace::Data;
    data.name = "data";
    // table's initial values {1, 2, 3, 4}, then handler = scale (a word address, as AVR calls use).
    data.runs = {{sample::kTable, {1, 0, 2, 0, 3, 0, 4, 0, 0x14, 0x00}}};
    model::MemoryImage eeprom;
    eeprom.space = MemorySpace::Eeprom;
    eeprom.name = "eeprom";
    eeprom.runs = {{sample::kEeSetting, {0x34, 0x12}}};
    program.memories = {code, data, eeprom};

    // Types: the typedef chain byte_t -> u8 -> unsigned char, a structure with bit fields and an
    // enumeration, arrays of one and two dimensions, a pointer to a function, a pointer into flash and a const union.
    using Kind = Type::Kind;
    std::vector<Type>& types = program.types;
    const uint32_t uchar = addType(program, Kind::Base, kNone, 1, "unsigned char", "unsigned char");
    types[uchar].encoding = Type::Encoding::UnsignedChar;
    const uint32_t sint = addType(program, Kind::Base, kNone, 2, "int", "int");
    types[sint].encoding = Type::Encoding::Signed;
    const uint32_t volatileUchar = addType(program, Kind::Volatile, uchar, 1);
    const uint32_t byteT = addType(program, Kind::Typedef, addType(program, Kind::Typedef, uchar, 1, "u8"), 1, "byte_t");
    const uint32_t modeType = addType(program, Kind::Enumeration, kNone, 1, "mode", "enum mode");
    types[modeType].enumerators = {{"IDLE", 0}, {"RUN", 1}, {"STOPPED", -1}};
    const uint32_t statusType = addType(program, Kind::Structure, kNone, 4, "status", "struct status");
    types[statusType].members = {{"state", modeType, 0, 0, 0},
                                 {"ready", uchar, 1, 1, 0},
                                 {"level", uchar, 1, 3, 1},
                                 {"count", sint, 2, 0, 0}};
    const uint32_t tableType = addType(program, Kind::Array, sint, 8);
    types[tableType].dimensions = {4};
    const uint32_t gridType = addType(program, Kind::Array, uchar, 6);
    types[gridType].dimensions = {2, 3};
    const uint32_t scaleType = addType(program, Kind::Function, sint, 0);
    types[scaleType].parameters = {sint};
    const uint32_t handlerType = addType(program, Kind::Pointer, scaleType, 2);
    types[handlerType].pointerSpace = MemorySpace::Code;
    const uint32_t bytesType = addType(program, Kind::Array, uchar, 2);
    types[bytesType].dimensions = {2};
    const uint32_t wordType = addType(program, Kind::Union, kNone, 2, "word", "union word");
    types[wordType].members = {{"whole", sint, 0, 0, 0}, {"bytes", bytesType, 0, 0, 0}};
    const uint32_t constWord = addType(program, Kind::Const, wordType, 2);
    const uint32_t textType = addType(program, Kind::Pointer, addType(program, Kind::Const, uchar, 1), 2);
    types[textType].pointerSpace = MemorySpace::Code; // a string in flash
    const uint32_t mainType = addType(program, Kind::Function, kNone, 0);

    model::Module startup;
    startup.name = "cstartup";
    startup.file = 0;
    startup.files = {0};
    startup.ranges = {{MemorySpace::Code, sample::kStart, sample::kMain}};
    startup.functions = {0};
    model::Module app;
    app.name = "main";
    app.file = 1;
    app.files = {1};
    app.ranges = {{MemorySpace::Code, sample::kMain, sample::kCodeEnd}};
    app.functions = {1, 2};
    program.modules = {startup, app};

    // name, module, entry, end, type, external, file, line
    program.functions = {
        function("__program_start", 0, sample::kStart, sample::kMain, kNone, true, 0, 5),
        function("main", 1, sample::kMain, sample::kScale, mainType, true, 1, 9),
        function("scale", 1, sample::kScale, sample::kCodeEnd, scaleType, false, 1, 19),
    };

    const std::vector<uint32_t> globals = {
        addVariable(program, global("counter", volatileUchar, 1, inData(sample::kCounter), 3)),
        addVariable(program, global("total", sint, 2, inData(0x61), 4)),
        addVariable(program, global("status", statusType, 4, inData(sample::kStatus), 5)),
        addVariable(program, global("table", tableType, 8, inData(sample::kTable), 6)),
        addVariable(program, global("grid", gridType, 6, inData(0x71), 8)),
        addVariable(program, global("level_byte", byteT, 1, inData(0x77), 9)),
        addVariable(program, global("current", modeType, 1, inData(0x78), 10)),
        addVariable(program, global("split", constWord, 2, inData(0x7A), 13)),
        addVariable(program, global("message", textType, 2, inData(0x7C), 14)),
    };
    Variable handlerVariable = global("handler", handlerType, 2, inData(0x6F), 7);
    handlerVariable.isExternal = false;
    Location inEeprom = inData(sample::kEeSetting);
    inEeprom.space = MemorySpace::Eeprom;
    program.modules[1].variables = globals;
    program.modules[1].variables.push_back(addVariable(program, handlerVariable));
    program.modules[1].variables.push_back(
        addVariable(program, global("ee_setting", sint, 2, inEeprom, 11)));

    // main's static counter of calls, and scale's parameter and locals.
    Variable calls = global("calls", byteT, 1, inData(0x79), 12);
    calls.isExternal = false;
    calls.function = 1;
    calls.qualifiedName = "main::calls";
    program.functions[1].variables = {addVariable(program, calls)};

    Variable x = global("x", sint, 2, Location{}, 19);
    x.isExternal = false;
    x.function = 2;
    Variable saved = x, doubled = x;
    x.isParameter = true;
    x.ranges = {{sample::kScale, sample::kScaleLine22, inRegisters(16, 2)}}; // r16:r17 until reused
    saved.name = "saved";
    saved.line = 20;
    const Location frame{Location::Kind::FrameOffset, MemorySpace::Data, 0, 0, 0, 0};
    saved.ranges = {{sample::kScale + 2, sample::kBlockEnd, frame}}; // Y+0 once the frame exists
    doubled.name = "doubled";
    doubled.line = 21;
    doubled.block = 0;
    doubled.location = inRegisters(24, 2);
    program.functions[2].variables = {addVariable(program, x), addVariable(program, saved)};
    model::Block block;
    block.low = sample::kBlock;
    block.high = sample::kBlockEnd;
    block.variables = {addVariable(program, doubled)};
    program.blocks = {block};
    program.functions[2].blocks = {0};

    addRows(program,
            {{0x00, 0x04, 0, 6, 0}, {0x04, 0x08, 0, 7, 0}, {0x08, 0x0C, 0, 8, 0}, {0x0C, 0x0E, 0, 9, 0},
             {sample::kMain, sample::kMainLine11, 1, 10, 1}, {sample::kMainLine11, 0x1E, 1, 11, 1}, {0x1E, 0x26, 1, 11, 1},
             {0x26, sample::kScale, 1, 12, 1}, {sample::kScale, sample::kScaleLine21, 1, 20, 2},
             {sample::kScaleLine21, sample::kScaleLine22, 1, 21, 2}, {sample::kScaleLine22, 0x3C, 1, 22, 2},
             {0x3C, sample::kCodeEnd, 1, 23, 2}},
            0x1E);
    return program;
}

Program tinyProgram(Family family, const std::string& processor)
{
    Program program;
    program.path = "tiny.d90";
    program.processor = {family, processor};
    program.files = {{"tiny.c"}};
    model::MemoryImage code;
    code.space = MemorySpace::Code;
    code.name = "code";
    code.runs = {{0x100, {0x01, 0x02, 0x03, 0x04}}};
    program.memories = {code};
    model::Module module;
    module.name = "tiny";
    module.file = 0;
    module.files = {0};
    program.modules = {module};
    program.functions = {function("tiny", 0, 0x100, 0x104, kNone, true, 0, 2)};
    addRows(program, {{0x100, 0x104, 0, 3, 0}});
    return program;
}

uint32_t variableNamed(const Program& program, const std::string& name)
{
    for (uint32_t i = 0; i < program.variables.size(); ++i)
        if (program.variables[i].qualifiedName == name)
            return i;
    ADD_FAILURE() << "no variable " << name;
    return 0;
}

} // namespace ubrof::test
