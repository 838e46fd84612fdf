// The register image: read replies stored into it, bit-of-word writes completed from it, host
// reads out of it and host writes cut into write records and mirrored into it.
#include <climits>

#include "loaded_driver.h"

namespace {

typedef std::vector<std::string> Pieces;

class RegisterImage : public DriverTest {
protected:
    // Queues the read `record` and stores a reply from station 1 carrying `data` (hex).
    void store(const RW_VAR& record, const char* data) {
        read_register(record);
        QByteArray reply = withCrc(bytesOf("01 20 00") + bytesOf(data));
        SaveToLocalDataErea(&reply);
        driver.requestQueue.removeFirst();
    }

    // The queued write records as "address count: data".
    Pieces pieces() const {
        Pieces out;
        for (const RW_VAR& r : driver.writeList) {
            out.push_back(std::to_string(r.address) + " " + std::to_string(r.count) + ": " +
                          hex(r.data));
        }
        return out;
    }

    void mirrorQueued() {
        for (const RW_VAR& record : driver.writeList) {
            write_data_to_local(record);
        }
    }
};

}  // namespace

TEST_F(RegisterImage, ReadRepliesAreStoredByStationAreaAndWord) {
    QByteArray stray = withCrc(bytesOf("01 20 02 12 34"));
    SaveToLocalDataErea(&stray);  // nothing queued
    SaveToLocalDataErea(nullptr);
    store(var(14, 100, 2), "12 34 AB CD");  // words arrive high byte first
    store(var(2, 3, 1), "01 80");           // bit groups bits 0..7 first: bits 48 and 63 on
    store(var(29, 7, 1), "00 09");          // bits of words live in the words of area 14 ...
    store(var(14, 7, 1), "00 01");          // ... so this is the same word: the later store wins
    store(var(14, 7, 1, 2), "00 02");
    store(var(15, 7, 1), "00 03");
    store(var(14, 1, 0), "");  // a zero-word read has no data span
    EXPECT_EQ(image(), (Image{{0x010E000000000064, 0x1234},
                              {0x010E000000000065, 0xABCD},
                              {0x0102000000000003, 0x8001},
                              {0x010E000000000007, 1},
                              {0x020E000000000007, 2},
                              {0x010F000000000007, 3}}));

    // A reply shorter than its request stores only the whole words it holds.
    driver.registerCache.clear();
    read_register(var(14, 1, 3));
    QByteArray shortReply = bytesOf("01 20 06 12 34 56");
    SaveToLocalDataErea(&shortReply);
    EXPECT_EQ(image(), (Image{{0x010E000000000001, 0x1234}}));
}

// The reply to the word read completes the queued write frame: the bit set or cleared in the
// word read, a fresh CRC, nothing stored. The bit and its value come from the queued write (the
// head of writeList, here a record that would clear it, is not read); writeList is only asked
// whether it holds a write at all.
TEST_F(RegisterImage, WordReadRepliesCompleteBitOfWordWrites) {
    RW_VAR clearing = writeVar(29, 163, 1, "00");
    AddListWriteVar(&clearing);
    const struct {
        int address;
        const char* value;
        const char* wordRead;
        const char* write;
    } cases[] = {
        {163, "01", "00 00", "01 21 80 00 00 0A 00 01 02 00 08 92 21"},
        {163, "01", "00 10", "01 21 80 00 00 0A 00 01 02 00 18 93 ED"},
        {164, "00", "00 10", "01 21 80 00 00 0A 00 01 02 00 00 93 E7"},
        {175, "", "FF FF", "01 21 80 00 00 0A 00 01 02 7F FF F3 97"},  // empty clears too
    };
    for (const auto& c : cases) {
        driver.requestQueue.clear();
        write_analog_bit(writeVar(29, c.address, 1, c.value));
        QByteArray reply = withCrc(bytesOf("01 20 02") + bytesOf(c.wordRead));
        SaveToLocalDataErea(&reply);
        ASSERT_EQ(driver.requestQueue.size(), 2);
        EXPECT_EQ(hex(request(1).frame), c.write) << c.address << " " << c.value;
    }
    EXPECT_TRUE(image().empty());

    // Without a whole word to work on, or without the write queued, nothing happens.
    driver.requestQueue.clear();
    write_analog_bit(writeVar(29, 163, 1, "01"));
    QByteArray sixBytes = withCrc(bytesOf("01 20 02 00"));
    SaveToLocalDataErea(&sixBytes);
    EXPECT_EQ(hex(request(1).frame), "01 21 80 00 00 0A 00 01 02 00 00 00 00");
    QByteArray reply = withCrc(bytesOf("01 20 02 00 00"));
    driver.writeList.clear();
    SaveToLocalDataErea(&reply);
    EXPECT_EQ(hex(request(1).frame), "01 21 80 00 00 0A 00 01 02 00 00 00 00");
    driver.requestQueue.removeLast();
    SaveToLocalDataErea(&reply);
    EXPECT_EQ(driver.requestQueue.size(), 1);
    EXPECT_TRUE(image().empty());
}

// Host buffers hold words low byte first and one byte per bit. What was never read reads as zero;
// a text or area that names nothing gives two zero bytes a unit.
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
        {14, "0", -3, "00 00 00 00 00 00 00 00", 1},
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
}

TEST_F(RegisterImage, HostReadsTakeTheStationFromThePortUnlessPerVariable) {
    setWord(14, 7, 0xBEEF, 5);
    info.defaultStation = 5;
    EXPECT_EQ(hex(read(14, "7", 1, 1)), "EF BE");
    info.perVarStation = 1;
    EXPECT_EQ(hex(read(14, "7", 1, 1)), "00 00");
    EXPECT_EQ(hex(read(14, "7", 1, 5)), "EF BE");
    SetComInfo(nullptr);  // no port record: the given station
    EXPECT_EQ(hex(read(14, "7", 1, 5)), "EF BE");
}

// Pieces are as long as the block length the host's record holds now, even above the 100 that
// SetComInfo allows (a block length below 1 counts as 1); bit pieces are eight times as long.
// Bytes the host did not hand over are written as zero.
TEST_F(RegisterImage, HostWritesAreCutIntoRecordsOfTheBlockLength) {
    info.writeMode = 2;
    info.maxUnits = 2;
    info.remoteMode = 5;
    EXPECT_EQ(write(14, "100", "01 00 02 00 03 00", 3), 2);
    EXPECT_EQ(pieces(), (Pieces{"100 2: 01 00 02 00", "102 1: 03 00"}));
    const RW_VAR& first = driver.writeList.first();
    EXPECT_EQ(std::vector<int>({first.ownerId, first.itemId, first.direction, first.remoteMode,
                                first.port, first.area, first.station}),
              std::vector<int>({7, 8, 1, 5, 1, 14, 1}));
    EXPECT_EQ(first.nameText, QString::fromLatin1("tag"));
    EXPECT_EQ(first.addressText, QString::fromLatin1("100"));
    EXPECT_TRUE(image().empty());  // a write to a working link shows once its frame is built
    mirrorQueued();
    EXPECT_EQ(image(),
              (Image{{0x010E000000000064, 1}, {0x010E000000000065, 2}, {0x010E000000000066, 3}}));

    driver.writeList.clear();
    info.maxUnits = 1;
    write(3, "5", "01 00 00 00 00 00 00 01  00 01 00 00 00 00 00 00  01 01 00 01", 20);
    EXPECT_EQ(pieces(), (Pieces{"5 8: 81", "13 8: 02", "21 4: 0B"}));

    driver.writeList.clear();
    info.maxUnits = 0;
    write(14, "0", "", 3);
    EXPECT_EQ(pieces(), (Pieces{"0 1: 00 00", "1 1: 00 00", "2 1: 00 00"}));

    driver.writeList.clear();
    info.maxUnits = 250;
    write(14, "0", "", 300);
    ASSERT_EQ(driver.writeList.size(), 2);
    EXPECT_EQ(driver.writeList.at(0).count, 250);
    EXPECT_EQ(driver.writeList.at(0).data.size(), 500);
    EXPECT_EQ(driver.writeList.at(1).count, 50);
    driver.writeList.clear();
    info.maxUnits = INT_MAX;
    write(2, "0", "", 17);
    EXPECT_EQ(pieces(), (Pieces{"0 17: 00 00 00"}));

    driver.writeList.clear();
    info.maxUnits = 100;
    write(14, "0", "01 02 03", 3);
    EXPECT_EQ(SetRegisterData(QString(), 2, QString::fromLatin1("0"), 1, nullptr, 9, 0, 0), 2);
    EXPECT_EQ(pieces(), (Pieces{"0 3: 01 02 03 00 00 00", "0 9: 00 00"}));
}

// Bits are packed least significant first, and mirroring changes only the bits written; bits
// of words are one record each, bit 15 of a word followed by bit 0 of the next.
TEST_F(RegisterImage, HostBitWritesArePackedAndMirrorOnlyThemselves) {
    info.writeMode = 2;
    EXPECT_EQ(write(2, "20", "01 00 01 01 00 00 00 00 00 01", 10), 1);
    EXPECT_EQ(write(29, "10.15", "01 00", 2), 3);
    EXPECT_EQ(pieces(), (Pieces{"20 10: 0D 02", "175 1: 01", "176 1: 00"}));
    EXPECT_EQ(driver.writeList.at(2).area, 29);

    setWord(2, 1, 0xFFFF);
    setWord(14, 11, 0xFFFF);
    mirrorQueued();
    // Bits 20..29 are bits 4..13 of word 1: 4, 6, 7, 13 on, 5 and 8..12 off, the rest kept.
    EXPECT_EQ(word(2, 1), 0xE0DF);
    EXPECT_EQ(word(14, 10), 0x8000);
    EXPECT_EQ(word(14, 11), 0xFFFE);
}

// Only write mode 2 queues; every other mode shows the value at once. A queued write shows at
// once only while the link is down. Without per-variable stations every write goes to the
// port's station.
TEST_F(RegisterImage, WriteModesLinkStateAndStations) {
    for (int mode : {0, 1, 3}) {
        info.writeMode = mode;
        EXPECT_EQ(write(14, "50", "34 12", 1), 0) << "writeMode " << mode;
        EXPECT_EQ(word(14, 50), 0x1234);
        driver.registerCache.clear();
    }

    info.writeMode = 2;
    driver.commFailed = 1;
    EXPECT_EQ(write(29, "4.2", "01", 1), 1);
    EXPECT_EQ(word(14, 4), 0x0004);
    driver.commFailed = 0;
    EXPECT_EQ(write(29, "4.3", "01", 1), 2);
    EXPECT_EQ(word(14, 4), 0x0004);

    driver.registerCache.clear();
    info.writeMode = 0;
    info.defaultStation = 3;
    write(14, "9", "01 00", 1, 7, 8, 1);
    EXPECT_EQ(image(), (Image{{0x030E000000000009, 1}}));
    info.perVarStation = 1;
    info.writeMode = 2;
    write(14, "9", "01 00", 1, 7, 8, 6);
    EXPECT_EQ(driver.writeList.last().station, 6);
}

// An image-only write writes every unit, however many records it takes; only a count far beyond
// any panel (over 2^20 units) is refused, whole.
TEST_F(RegisterImage, HostWritesThatNameNothingOrTooMuch) {
    info.writeMode = 2;
    driver.commFailed = 1;  // would mirror anything that got through
    EXPECT_EQ(write(29, "1.2.3", "01", 1), 0);
    EXPECT_EQ(write(14, "abc", "01 00", 1), 0);
    EXPECT_EQ(write(30, "5", "01 00", 1), 0);
    EXPECT_EQ(write(-1, "5", "01 00", 1), 0);
    EXPECT_EQ(write(14, "5", "01 00", 0), 0);
    EXPECT_EQ(write(14, "5", "01 00", -4), 0);
    EXPECT_TRUE(driver.writeList.isEmpty());
    EXPECT_TRUE(image().empty());

    info.writeMode = 0;
    info.maxUnits = 1;
    write(14, "0", "", 3000);
    EXPECT_EQ(driver.registerCache.size(), 3000);
    EXPECT_EQ(word(14, 2999), 0);
    EXPECT_TRUE(driver.registerCache.contains(key(14, 2999)));
    driver.registerCache.clear();
    write(29, "0.0", "", 3000 * 16);
    EXPECT_EQ(driver.registerCache.size(), 3000);
    driver.registerCache.clear();
    info.maxUnits = 100;
    const std::pair<int, const char*> firstUnits[] = {{14, "0"}, {2, "0"}, {29, "0.0"}};
    for (const auto& [area, address] : firstUnits) {
        write(area, address, "", (1 << 20) + 1);
        write(area, address, "", INT_MAX);
        EXPECT_TRUE(image().empty()) << area;
    }
    info.writeMode = 2;
    driver.commFailed = 0;
    info.maxUnits = 1;
    EXPECT_EQ(write(14, "0", "", 3000), kMaxListEntries);  // the list's own cap

    SetComInfo(nullptr);
    driver.registerCache.clear();
    EXPECT_EQ(write(14, "5", "01 00", 1), 0);
    EXPECT_TRUE(image().empty());
}

TEST_F(RegisterImage, MirroringTakesOnlyWhatThePayloadCarries) {
    write_data_to_local(writeVar(4, 0, 40, "FF"));        // 8 bits for a count of 40
    write_data_to_local(writeVar(20, 3, 1, "01 02 03"));  // the odd byte is no whole word
    write_data_to_local(writeVar(31, 0, 1, "01 00"));     // no such area
    EXPECT_EQ(image(), (Image{{0x0104000000000000, 0x00FF}, {0x0114000000000003, 0x0201}}));
}
