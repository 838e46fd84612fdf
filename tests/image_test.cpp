// The register image: read replies stored into it, bit-of-word writes completed from it, host
// reads out of it and host writes cut into write records and mirrored into it.
#include <climits>

#include "loaded_driver.h"

namespace {

class RegisterImage : public DriverTest {
protected:
    // Queues the read `record` and stores a reply from station 1 carrying `data` (hex).
    void store(const RW_VAR& record, const char* data) {
        read_register(record);
        QByteArray reply = withCrc(bytesOf("01 20 00") + bytesOf(data));
        SaveToLocalDataErea(&reply);
        driver.requestQueue.removeFirst();
    }
    // The queued write records as "address count: data", each mirrored into the image.
    std::vector<std::string> pieces() const {
        std::vector<std::string> out;
        for (const RW_VAR& r : driver.writeList) {
            out.push_back(std::to_string(r.address) + " " + std::to_string(r.count) + ": " +
                          hex(r.data));
            write_data_to_local(r);
        }
        return out;
    }
};

}  // namespace

// Words arrive high byte first, bit groups bits 0..7 first; bits of words live in the words of
// area 14, and a reply shorter than its request stores only the whole words it holds.
TEST_F(RegisterImage, ReadRepliesAreStoredByStationAreaAndWord) {
    QByteArray stray = withCrc(bytesOf("01 20 02 12 34"));
    SaveToLocalDataErea(&stray);  // nothing queued
    SaveToLocalDataErea(nullptr);
    store(var(29, 7, 1), "00 09");
    store(var(14, 7, 1), "00 01");  // the same word: the later store wins
    store(var(14, 7, 1, 2), "00 02");
    store(var(15, 7, 1), "00 03");
    store(var(14, 1, 0), "");  // a zero-word read has no data span
    read_register(var(2, 1, 3));
    QByteArray shortReply = bytesOf("01 20 06 12 34 56");
    SaveToLocalDataErea(&shortReply);
    EXPECT_EQ(image(),
              (Image{{key(2, 1), 0x3412}, {key(14, 7), 1}, {key(14, 7, 2), 2}, {key(15, 7), 3}}));
}

// The reply to the word read completes the queued write frame: the bit set or cleared in the
// word read, a fresh CRC, nothing stored. The bit and its value come from the queued write (the
// head of writeList, here a record that would clear it, is not read); writeList is only asked
// whether it holds a write at all. Without a whole word, or without the write, nothing happens.
TEST_F(RegisterImage, WordReadRepliesCompleteBitOfWordWrites) {
    RW_VAR clearing = writeVar(29, 163, 1, "00");
    AddListWriteVar(&clearing);
    const char* const cases[][4] = {
        // bit, value, word read, the write completed
        {"163", "01", "00 00", "01 21 80 00 00 0A 00 01 02 00 08 92 21"},
        {"163", "01", "00 10", "01 21 80 00 00 0A 00 01 02 00 18 93 ED"},
        {"164", "00", "00 10", "01 21 80 00 00 0A 00 01 02 00 00 93 E7"},
        {"175", "", "FF FF", "01 21 80 00 00 0A 00 01 02 7F FF F3 97"},  // empty clears too
        {"163", "01", "00", "01 21 80 00 00 0A 00 01 02 00 00 00 00"},
    };
    for (const auto& c : cases) {
        driver.requestQueue.clear();
        write_analog_bit(writeVar(29, std::stoi(c[0]), 1, c[1]));
        QByteArray reply = withCrc(bytesOf("01 20 02") + bytesOf(c[2]));
        SaveToLocalDataErea(&reply);
        ASSERT_EQ(driver.requestQueue.size(), 2);
        EXPECT_EQ(hex(request(1).frame), c[3]) << c[0] << " " << c[1] << " " << c[2];
    }
    QByteArray reply = withCrc(bytesOf("01 20 02 00 00"));
    driver.writeList.clear();
    SpecialRegisterSave(&reply);
    SpecialRegisterSave(nullptr);
    EXPECT_EQ(hex(request(1).frame), "01 21 80 00 00 0A 00 01 02 00 00 00 00");
    driver.requestQueue.removeLast();
    AddListWriteVar(&clearing);
    SaveToLocalDataErea(&reply);
    EXPECT_EQ(driver.requestQueue.size(), 1);
    EXPECT_TRUE(image().empty());
}

// Host buffers hold words low byte first and one byte per bit. What was never read reads as zero;
// a text or area that names nothing gives two zero bytes a unit. The station is the port's,
// unless stations are per-variable or there is no port record.
TEST_F(RegisterImage, HostReadsOfWordsBitsAndBitsOfWords) {
    setWord(14, 100, 0x1208);
    setWord(14, 11, 0x0001);
    setWord(2, 0, 0x8000);
    setWord(2, 1, 0x0001);
    setWord(0, 0, 0x8000);
    const Image before = image();
    const struct {
        int area;
        const char* address;
        int count;
        const char* expected;
        int result;
    } cases[] = {
        {14, "100", 2, "08 12 00 00", 1},
        {2, "15", 3, "01 01 00", 1},  // bits 15, 16 and 17
        {0, "17", 2, "01 00", 1},     // octal 17 is bit 15
        {29, "100.3", 2, "01 00", 1},
        {29, "10.15", 2, "00 01", 1},  // bit 15 is followed by bit 0 of word 11
        {14, "abc", 4, "00 00 00 00 00 00 00 00", 0},
        {29, "1.2.3", 3, "00 00 00 00 00 00", 0},
        {30, "5", 3, "00 00 00 00 00 00", 1},
        {-4, "5", 1, "00 00", 1},
        {14, "0", 0, "", 1},
        // A negative count keeps the buffer's length, zeroed, as Qt's fill() with a negative size.
        {2, "0", -1, "00 00 00 00 00 00 00 00", 1},
        {14, "x", -3, "00 00 00 00 00 00 00 00", 0},
        {14, "0", INT_MAX, "", 1},  // two bytes a word do not fit an int
        {14, "x", INT_MAX, "", 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex(read(c.area, c.address, c.count)), c.expected) << c.area << " " << c.address;
        EXPECT_EQ(readResult, c.result) << c.area << " " << c.address;
    }
    EXPECT_EQ(GetRegisterData(QString(), 14, QString::fromLatin1("0"), 1, nullptr, 4), 0);
    EXPECT_EQ(image(), before);  // reads never insert
    setWord(14, 7, 0xBEEF, 5);
    info.defaultStation = 5;
    std::string seen = hex(read(14, "7", 1, 1));
    info.perVarStation = 1;
    seen += " | " + hex(read(14, "7", 1, 1)) + " | " + hex(read(14, "7", 1, 5));
    SetComInfo(nullptr);
    EXPECT_EQ(seen + " | " + hex(read(14, "7", 1, 5)), "EF BE | 00 00 | EF BE | EF BE");
}

// Write mode 2 queues records as long as the block length the host's record holds now, even
// above the 100 that SetComInfo allows (below 1 counts as 1), bit records eight times as long,
// bits of words one each; bytes the host did not hand over are zero. The image shows a queued
// write once its frame is built, or at once while the link is down; other modes show it at once.
TEST_F(RegisterImage, HostWritesAreCutIntoRecordsAndMirrored) {
    info.writeMode = 2;
    info.maxUnits = 2;
    info.remoteMode = 5;
    EXPECT_EQ(write(14, "100", "01 00 02 00 03 00", 3), 2);
    EXPECT_TRUE(image().empty());
    const RW_VAR& first = driver.writeList.first();
    EXPECT_EQ(std::vector<int>({first.ownerId, first.itemId, first.direction, first.remoteMode,
                                first.port, first.area, first.station}),
              std::vector<int>({7, 8, 1, 5, 1, 14, 1}));
    EXPECT_EQ(first.nameText + first.addressText, QString::fromLatin1("tag100"));
    EXPECT_EQ(pieces(), (std::vector<std::string>{"100 2: 01 00 02 00", "102 1: 03 00"}));
    driver.writeList.clear();
    const struct {
        int maxUnits, area;
        const char* address;
        const char* values;
        int count;
        std::vector<std::string> pieces;
    } cases[] = {
        {1,
         3,
         "5",
         "01 00 00 00 00 00 00 01 00 01 00 00 00 00 00 00 01 01 00 01",
         20,
         {"5 8: 81", "13 8: 02", "21 4: 0B"}},
        {0, 14, "5", "", 3, {"5 1: 00 00", "6 1: 00 00", "7 1: 00 00"}},
        {INT_MAX, 2, "5", "", 17, {"5 17: 00 00 00"}},
        {100, 14, "5", "01 02 03", 3, {"5 3: 01 02 03 00 00 00"}},
        {100, 2, "20", "01 00 01 01 00 00 00 00 00 01", 10, {"20 10: 0D 02"}},
        {100, 29, "10.15", "01 00", 2, {"175 1: 01", "176 1: 00"}},
    };
    for (const auto& c : cases) {
        info.maxUnits = c.maxUnits;
        write(c.area, c.address, c.values, c.count);
        EXPECT_EQ(pieces(), c.pieces) << c.maxUnits;
        driver.writeList.clear();
    }
    EXPECT_EQ(word(14, 102), 3);
    EXPECT_EQ(SetRegisterData(QString(), 2, QString::fromLatin1("0"), 1, nullptr, 9, 0, 0), 1);
    EXPECT_EQ(hex(driver.writeList.last().data), "00 00");
    info.maxUnits = 250;
    write(14, "0", "", 300);
    EXPECT_EQ(std::vector<int>({driver.writeList.at(1).count, driver.writeList.at(1).data.size(),
                                driver.writeList.at(2).count}),
              std::vector<int>({250, 500, 50}));
    driver.writeList.clear();

    // Mirroring changes only the bits written: bits 20..29 are bits 4..13 of word 1, with 4, 6,
    // 7 and 13 on; bit 15 of word 10 on, bit 0 of word 11 off.
    driver.registerCache.clear();
    setWord(2, 1, 0xFFFF);
    setWord(14, 11, 0xFFFF);
    driver.commFailed = 1;
    write(2, "20", "01 00 01 01 00 00 00 00 00 01", 10);
    write(29, "10.15", "01 00", 2);
    for (int mode : {0, 1, 3}) {
        info.writeMode = mode;
        EXPECT_EQ(write(14, "50", "34 12", 1), 3) << mode;
    }
    driver.commFailed = 0;
    EXPECT_EQ(write(14, "51", "34 12", 1), 3);
    EXPECT_EQ(image(), (Image{{key(2, 1), 0xE0DF},
                              {key(14, 10), 0x8000},
                              {key(14, 11), 0xFFFE},
                              {key(14, 50), 0x1234},
                              {key(14, 51), 0x1234}}));
    info.writeMode = 2;
    EXPECT_EQ(write(14, "52", "34 12", 1), 4);
    EXPECT_EQ(word(14, 52), 0);
}

// Without per-variable stations every write goes to the port's station. Texts, areas and counts
// that name nothing are refused, as is a count far beyond any panel (over 2^20 units), whole;
// anything less is written in full, however many records it takes. Mirroring takes only what
// the payload carries.
TEST_F(RegisterImage, HostWritesThatNameNothingOrTooMuch) {
    info.defaultStation = 3;
    write(14, "9", "01 00", 1, 7, 8, 1);
    info.perVarStation = 1;
    write(14, "9", "02 00", 1, 7, 8, 6);
    EXPECT_EQ(image(), (Image{{key(14, 9, 3), 1}, {key(14, 9, 6), 2}}));
    driver.registerCache.clear();
    info.writeMode = 2;
    driver.commFailed = 1;  // would mirror anything that got through
    const std::tuple<int, const char*, int> refused[] = {
        {29, "1.2.3", 1}, {14, "abc", 1}, {30, "5", 1}, {-1, "5", 1}, {14, "5", 0}, {14, "5", -4}};
    for (const auto& [area, address, count] : refused) {
        EXPECT_EQ(write(area, address, "01 00", count), 0) << area << " " << address;
    }
    EXPECT_TRUE(image().empty() && driver.writeList.isEmpty());
    info.writeMode = 0;
    driver.commFailed = 0;
    info.maxUnits = 1;
    write(14, "0", "", 3000);
    write(29, "0.0", "", 3000 * 16);
    EXPECT_EQ(driver.registerCache.size(), 3000);
    EXPECT_TRUE(driver.registerCache.contains(key(14, 2999)));
    driver.registerCache.clear();
    for (const auto& [area, address] : {std::pair<int, const char*>{14, "0"}, {2, "0"}}) {
        write(area, address, "", (1 << 20) + 1);
        write(area, address, "", INT_MAX);
    }
    EXPECT_TRUE(image().empty());
    info.writeMode = 2;
    EXPECT_EQ(write(14, "0", "", 3000), kMaxListEntries);  // the list's own cap
    write_data_to_local(writeVar(4, 0, 40, "FF"));         // 8 bits for a count of 40
    write_data_to_local(writeVar(20, 3, 1, "01 02 03"));   // the odd byte is no whole word
    write_data_to_local(writeVar(31, 0, 1, "01 00"));      // no such area
    EXPECT_EQ(image(), (Image{{key(4, 0), 0x00FF}, {key(20, 3), 0x0201}}));
    SetComInfo(nullptr);
    EXPECT_EQ(write(14, "5", "01 00", 1), 0);
}
