// The generated programs. The sample is a thermometer for a small AVR-like controller as its
// compiler and linker would describe it: a hidden start-up module, main.c and sensor.c by
// reference, lcd.c embedded. The large program repeats the same shapes many times.
#include "tools/ubrofgen/ProgramBuilder.h"

#include <numeric>
#include <stdexcept>

namespace ubrof::gen {
namespace {

// Base type indices of the type table.
constexpr uint16_t kUnsignedChar = 1, kChar = 2, kUnsignedInt = 5, kInt = 6, kUnsignedLong = 7, kLongInt = 8,
                   kFloat = 9, kVoid = 12;

// The program's own types.
enum : uint16_t {
    kDataChar = 100, kCharPtr, kFlashChar, kFlashCharPtr, kEepromUInt, kEepromUIntPtr, kIoByte,
    kSample, kDataSample, kSamplePtr, kReadyBit, kErrorBit, kChannelBits, kStatus, kTwoBytes,
    kWordBytes, kMode, kUint8, kSampleT, kHistory, kLcdRow, kLcdBuffer, kBanner, kVoidFn, kIsrFn,
    kReadAdcFn, kAverageFn, kPrintFn, kWriteFn, kSerial,
};

// Memory numbers of t_mem_info.
enum : uint8_t { kMemData = 0, kMemTiny, kMemFlash, kMemFarFlash, kMemEeprom, kMemIo };

// Symbol kinds and address spaces as the compiler writes them.
constexpr uint8_t kStatic = 1, kPublic = 2, kFrame = 7, kRegister = 8;
constexpr uint16_t kCodeSpace = 0, kDataSpace = 2, kEepromSpace = 3;

struct Statement {
    uint16_t line;
    uint16_t lastLine;
    size_t bytes;
};

size_t sizeOf(const std::vector<Statement>& statements)
{
    return std::accumulate(statements.begin(), statements.end(), size_t(0),
                           [](size_t sum, const Statement& s) { return sum + s.bytes; });
}

void emit(ProgramBuilder& b, const std::vector<Statement>& statements)
{
    for (const Statement& s : statements)
        b.statement(s.line, s.lastLine, s.bytes);
}

WriterSymbol variable(const std::string& name, uint8_t kind, uint16_t space, uint32_t value, uint16_t type,
                      std::vector<WriterLocation> locations = {})
{
    return WriterSymbol{name, kind, space, value, type, std::move(locations)};
}

void defineTypes(ProgramBuilder& b)
{
    UbrofWriter& w = b.w;
    w.defPtrTypes();
    w.memInfo(kMemData, "data", 2);
    w.memInfo(kMemTiny, "tiny", 1);
    w.memInfo(kMemFlash, "flash", 2);
    w.memInfo(kMemFarFlash, "farflash", 3);
    w.memInfo(kMemEeprom, "eeprom", 2);
    w.memInfo(kMemIo, "io", 1, 0x08);
    w.sizeType(10, 4);

    w.typeInMemory(kDataChar, 42, kMemData, kChar);
    w.typePointer(kCharPtr, 15, kDataChar);
    w.typeInMemory(kFlashChar, 42, kMemFlash, kChar, 0x01);
    w.typePointer(kFlashCharPtr, 15, kFlashChar);
    w.typeInMemory(kEepromUInt, 42, kMemEeprom, kUnsignedInt);
    w.typePointer(kEepromUIntPtr, 15, kEepromUInt);
    w.typeQualified(kIoByte, 0x54, kUnsignedChar);
    b.structType(kSample, "sample", 5, {{"raw", kUnsignedInt, 0}, {"celsius", kInt, 2}, {"channel", kUnsignedChar, 4}});
    w.typeInMemory(kDataSample, 42, kMemData, kSample);
    w.typePointer(kSamplePtr, 15, kDataSample);
    w.typeBitField(kReadyBit, 1, 0, kUnsignedChar);
    w.typeBitField(kErrorBit, 1, 1, kUnsignedChar);
    w.typeBitField(kChannelBits, 3, 2, kUnsignedChar);
    b.structType(kStatus, "status", 1, {{"ready", kReadyBit, 0}, {"error", kErrorBit, 0}, {"channel", kChannelBits, 0}});
    w.typeArray(kTwoBytes, kUnsignedChar, 2, 2);
    b.unionType(kWordBytes, "word_bytes", 2, {{"word", kUnsignedInt, 0}, {"bytes", kTwoBytes, 0}});
    b.enumType(kMode, kUnsignedChar, "mode", {{"MODE_IDLE", 0}, {"MODE_MEASURE", 1}, {"MODE_REPORT", 2}});
    w.typeTypedef(kUint8, kUnsignedChar, b.scoped("uint8_t"));
    w.typeTypedef(kSampleT, kSample, b.scoped("sample_t"));
    w.typeArray(kHistory, kSample, 40, 8);
    w.typeArray(kLcdRow, kUnsignedChar, 16, 16);
    w.typeArray(kLcdBuffer, kLcdRow, 32, 2);
    w.typeArray(kBanner, kFlashChar, 12, 12);
    w.typeArray(kSerial, kUnsignedChar, 4, 4);
    w.typeFunction(kVoidFn, kVoid, 0, {});
    w.typeFunction(kIsrFn, kVoid, 0x04, {});
    w.typeFunction(kReadAdcFn, kUnsignedInt, 0, {kUnsignedChar});
    w.typeFunction(kAverageFn, kInt, 0, {kSamplePtr, kUnsignedChar});
    w.typeFunction(kPrintFn, kVoid, 0, {kFlashCharPtr});
    w.typeFunction(kWriteFn, kVoid, 0, {kUnsignedChar});
}

} // namespace

UbrofWriter sampleProgram()
{
    // Code layout, worked out first: module symbols name function addresses before the code comes.
    const std::vector<Statement> mainHead = {{41, 41, 4}, {44, 44, 4}, {45, 45, 4}, {46, 46, 4}};
    const std::vector<Statement> mainLoop = {{50, 50, 4}, {51, 51, 6}, {52, 52, 8}, {53, 54, 14},
                                             {55, 55, 4}, {56, 56, 2}, {57, 57, 2}};
    const std::vector<Statement> mainTail = {{58, 58, 2}};
    const std::vector<Statement> isr = {{62, 62, 8}, {64, 64, 6}, {65, 65, 10}, {66, 66, 6}};
    const std::vector<Statement> readAdc = {{13, 13, 4}, {15, 15, 4}, {16, 16, 4}, {17, 18, 6},
                                            {19, 19, 8}, {20, 20, 6}, {21, 21, 2}};
    const std::vector<Statement> averageHead = {{24, 24, 4}, {25, 25, 8}};
    const std::vector<Statement> averageLoop = {{28, 28, 6}, {29, 29, 10}};
    const std::vector<Statement> averageTail = {{31, 31, 12}, {32, 32, 2}};
    const std::vector<Statement> lcdWrite = {{9, 9, 2}, {10, 10, 2}, {11, 11, 2}, {12, 12, 2}, {13, 13, 2}};
    const std::vector<Statement> lcdInit = {{16, 16, 2}, {17, 17, 4}, {18, 18, 4}, {19, 19, 4}, {20, 20, 2}};
    const std::vector<Statement> lcdPrint = {{23, 23, 4}, {24, 24, 6}, {25, 25, 8}, {26, 26, 4}};

    const uint32_t startup = 0x0060, mainAt = 0x0080;
    const uint32_t mainLoopAt = mainAt + sizeOf(mainHead);
    const uint32_t isrAt = mainLoopAt + sizeOf(mainLoop) + sizeOf(mainTail);
    const uint32_t readAdcAt = isrAt + sizeOf(isr);
    const uint32_t averageAt = readAdcAt + sizeOf(readAdc);
    const uint32_t lcdWriteAt = averageAt + sizeOf(averageHead) + sizeOf(averageLoop) + sizeOf(averageTail);
    const uint32_t lcdInitAt = lcdWriteAt + sizeOf(lcdWrite);
    const uint32_t lcdPrintAt = lcdInitAt + sizeOf(lcdInit);
    const uint32_t bannerAt = 0x0200;
    if (lcdPrintAt + sizeOf(lcdPrint) > bannerAt)
        throw std::logic_error("the sample's code runs into its flash constants");

    ProgramBuilder b;
    UbrofWriter& w = b.w;
    w.begFile1(kFixedDate).version(8, 0, 0, {{0xD3, 0xFE}});
    w.segInfo({{"VECTORS", 1}, {"CODE", 1}, {"DATA", 1}, {"EEPROM", 1}});
    w.keyValue("__rt_version", "3");
    // A tag this reader has no handler for, passed over by the skip information above.
    w.tag(0xD3).u16(4).u32(0x00010002);
    defineTypes(b);

    // Registers of the device header, shared by the modules that refer to group 0.
    w.grp(0);
    b.ioRegister("ADCL", 0x78, kIoByte);
    b.ioRegister("ADCH", 0x79, kIoByte);
    b.ioRegister("ADCSRA", 0x7A, kIoByte);
    b.ioRegister("ADMUX", 0x7C, kIoByte);

    // ---- ?C_STARTUP: vectors and start-up code; no source, hidden from the module list.
    w.begPgm("?C_STARTUP", kFixedDate).aux1("5.11").debug(1);
    b.symbol(variable("__vector_table", kPublic, kCodeSpace, 0x0000, 0));
    b.symbol(variable("__program_start", kPublic, kCodeSpace, startup, 0));
    b.codeAt(0x0000);
    w.absVar({0x0C, 0x94, uint8_t(startup / 2), uint8_t(startup / 2 >> 8)});
    b.codeAt(0x0040);
    w.absVar({0x0C, 0x94, uint8_t(isrAt / 2), uint8_t(isrAt / 2 >> 8)});
    b.codeAt(startup);
    w.absVar(ProgramBuilder::instructions(28, startup));
    w.absVar({0x0E, 0x94, uint8_t(mainAt / 2), uint8_t(mainAt / 2 >> 8)});
    w.end();

    // ---- main.c
    w.begPgm("main", kFixedDate).aux1("5.30").debug(1).aux(0x0100);
    w.grpRef(0);
    w.fileRef(0, "C:\\work\\thermo\\main.c", kFixedDate);
    w.macro("F_CPU", "8000000UL");
    b.ioRegister("PINB", 0x23, kIoByte);
    b.ioRegister("DDRB", 0x24, kIoByte);
    b.ioRegister("PORTB", 0x25, kIoByte);
    b.symbol(variable("current_mode", kPublic, kDataSpace, 0x0100, kMode));
    b.symbol(variable("history", kPublic, kDataSpace, 0x0101, kHistory));
    b.symbol(variable("latest", kPublic, kDataSpace, 0x0129, kSamplePtr));
    b.symbol(variable("status", kPublic, kDataSpace, 0x012B, kStatus));
    b.symbol(variable("last_raw", kStatic, kDataSpace, 0x012C, kWordBytes));
    b.symbol(variable("uptime", kPublic, kDataSpace, 0x012E, kUnsignedLong));
    b.symbol(variable("scale", kPublic, kDataSpace, 0x0132, kFloat));
    b.symbol(variable("sample_count", kPublic, kDataSpace, 0x0136, kUint8));
    b.symbol(variable("calibration", kPublic, kEepromSpace, 0x0000, kEepromUInt));
    b.symbol(variable("serial", kPublic, kEepromSpace, 0x0002, kSerial));
    b.symbol(variable("main", kPublic, kCodeSpace, mainAt, kVoidFn));
    b.symbol(variable("timer_isr", kPublic, kCodeSpace, isrAt, kIsrFn));
    // Initialised data and the EEPROM image, as the linker placed them.
    w.org(2, 0x0100).absVar({0x00});
    w.org(2, 0x0132).absVar({0x00, 0x00, 0x00, 0x3F});
    w.org(3, 0x0000).absVar({0x34, 0x12, 'T', 'H', '0', '1'});

    b.codeAt(mainAt);
    const uint32_t avgToStack = mainLoopAt + 4 + 6 + 8 + 14; // from line 55 on
    b.function("main", {variable("s", kFrame, kDataSpace, 0, kSample),
                        variable("avg", kRegister, kCodeSpace, 24, kInt,
                                 {{mainAt, kRegister, kCodeSpace, 24}, {avgToStack, kFrame, kDataSpace, 5}})});
    emit(b, mainHead);
    b.block({variable("k", kRegister, kCodeSpace, 17, kUnsignedChar),
             variable("msg", kRegister, kCodeSpace, 30, kFlashCharPtr)});
    emit(b, mainLoop);
    b.blockEnd();
    emit(b, mainTail);
    b.blockEnd();

    b.function("timer_isr", {variable("ticks", kStatic, kDataSpace, 0x0139, kUnsignedInt)});
    emit(b, isr);
    b.blockEnd();
    w.end();

    // ---- sensor.c: functions and blocks named through t_scoped_name, as newer compilers write them.
    w.begPgm("sensor", kFixedDate).aux1("5.30").debug(1);
    w.grpRef(0);
    w.fileRef(0, "C:\\work\\thermo\\sensor.c", kFixedDate);
    b.symbol(variable("adc_offset", kStatic, kDataSpace, 0x0137, kInt));
    b.symbol(variable("read_adc", kPublic, kCodeSpace, readAdcAt, kReadAdcFn));
    b.symbol(variable("average", kPublic, kCodeSpace, averageAt, kAverageFn));
    w.sourceRange();

    b.codeAt(readAdcAt);
    b.function("read_adc", {variable("channel", kRegister, kCodeSpace, 16, kUnsignedChar),
                            variable("value", kFrame, kDataSpace, 1, kUnsignedInt,
                                     {{readAdcAt, kRegister, kCodeSpace, 24}, {readAdcAt + 26, kFrame, kDataSpace, 1}})});
    emit(b, readAdc);
    b.blockEnd();

    const uint32_t averageName = b.scoped("average");
    w.blockBegin3(averageName);
    b.symbol(variable("samples", kRegister, kCodeSpace, 16, kSamplePtr));
    b.symbol(variable("count", kRegister, kCodeSpace, 18, kUnsignedChar));
    b.symbol(variable("sum", kFrame, kDataSpace, 0, kUnsignedLong));
    emit(b, averageHead);
    w.blockBegin3(b.scopedBlock(averageName, 1));
    b.symbol(variable("i", kRegister, kCodeSpace, 19, kUnsignedChar));
    emit(b, averageLoop);
    b.blockEnd();
    emit(b, averageTail);
    b.blockEnd();
    w.end();

    // ---- lcd.c, carried inside the file.
    w.begLib("lcd", kFixedDate).aux1("5.30").debug(1);
    w.file("C:\\work\\thermo\\lcd.c",
           {"/* lcd.c - HD44780 driver on PORTB */", "#include <io.h>", "#include \"lcd.h\"", "",
            "unsigned char lcd_buffer[2][16];", "char const __flash banner[12] = \"Thermo v1.0\";", "",
            "void lcd_write(unsigned char c)", "{", "  PORTB = c;", "  PORTB |= 0x80;", "  PORTB &= ~0x80;", "}",
            "", "void lcd_init(void)", "{", "  DDRB = 0xFF;", "  lcd_write(0x38);", "  lcd_write(0x0C);", "}", "",
            "void lcd_print(char const __flash *text)", "{", "  while (*text)", "    lcd_write(*text++);", "}"});
    b.symbol(variable("lcd_buffer", kPublic, kDataSpace, 0x013B, kLcdBuffer));
    b.symbol(variable("banner", kPublic, kCodeSpace, bannerAt, kBanner));
    b.symbol(variable("lcd_write", kPublic, kCodeSpace, lcdWriteAt, kWriteFn));
    b.symbol(variable("lcd_init", kPublic, kCodeSpace, lcdInitAt, kVoidFn));
    b.symbol(variable("lcd_print", kPublic, kCodeSpace, lcdPrintAt, kPrintFn));
    b.codeAt(lcdWriteAt);
    b.function("lcd_write", {variable("c", kRegister, kCodeSpace, 16, kUnsignedChar)});
    emit(b, lcdWrite);
    b.blockEnd();
    b.function("lcd_init");
    emit(b, lcdInit);
    b.blockEnd();
    b.function("lcd_print", {variable("text", kRegister, kCodeSpace, 16, kFlashCharPtr)});
    emit(b, lcdPrint);
    b.blockEnd();
    b.codeAt(bannerAt);
    w.absVar({'T', 'h', 'e', 'r', 'm', 'o', ' ', 'v', '1', '.', '0', 0});
    w.end();

    w.eof();
    return std::move(b.w);
}

UbrofWriter largeProgram(uint32_t modules, uint32_t functions, uint32_t statements)
{
    ProgramBuilder b;
    UbrofWriter& w = b.w;
    w.begFile1(kFixedDate).version(8);
    defineTypes(b);
    const uint32_t bytesPerStatement = 4;
    uint32_t address = 0x0100;
    uint32_t dataAddress = 0x0100;
    for (uint32_t m = 0; m < modules; ++m) {
        const std::string module = "module" + std::to_string(m);
        w.begPgm(module, kFixedDate).aux1("5.30");
        w.fileRef(0, "C:\\work\\large\\" + module + ".c", kFixedDate);
        for (const char* global : {"counter", "table", "state", "limit"}) {
            b.symbol(variable(module + "_" + global, kPublic, kDataSpace, dataAddress, kInt));
            dataAddress += 2;
        }
        // Function sizes are uniform, so the module's function symbols can name their addresses now.
        const uint32_t functionBytes = statements * bytesPerStatement;
        for (uint32_t f = 0; f < functions; ++f)
            b.symbol(variable(module + "_f" + std::to_string(f), kPublic, kCodeSpace, address + f * functionBytes, kVoidFn));
        b.codeAt(address);
        for (uint32_t f = 0; f < functions; ++f) {
            const uint32_t at = b.codeAddress();
            b.function(module + "_f" + std::to_string(f),
                       {variable("i", kRegister, kCodeSpace, 16, kUnsignedChar),
                        variable("acc", kFrame, kDataSpace, 0, kLongInt, {{at, kRegister, kCodeSpace, 24}})});
            const bool nested = f % 4 == 3 && statements >= 2;
            for (uint32_t s = 0; s < statements; ++s) {
                if (nested && s == statements / 2)
                    b.block({variable("tmp", kRegister, kCodeSpace, 18, kUnsignedInt)});
                const uint32_t line = 10 + (f * (statements + 3) + s) % 60000;
                b.statement(static_cast<uint16_t>(line), static_cast<uint16_t>(line), bytesPerStatement);
            }
            if (nested)
                b.blockEnd();
            b.blockEnd();
        }
        address = b.codeAddress();
        w.end();
    }
    w.eof();
    return std::move(b.w);
}

} // namespace ubrof::gen
