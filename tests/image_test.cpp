// The register image: read replies stored into it, bit-of-word writes completed from it, host
// reads out of it and host writes cut into write records and mirrored into it.
#include <climits>

#include "loaded_driver.h"

namespace {

typedef std::vector<std::string> Records;

class RegisterImage : public DriverTest {
protected:
    // Queues the read `record` and hands the driver a reply from station 1 carrying `data`.
    void store(const RW_VAR& record, const char* data) {
        read_register(record);
        QByteArray reply = withCrc(bytesOf("01 20 00") + bytesOf(data));
        SaveToLocalDataErea(&reply);
        driver.requestQueue.removeFirst();
    }
    // The queued write records as "address count: data", each then mirrored into the image.
    Records records() {
        Records out;
        for (const RW_VAR& r : driver.writeList) {
            out.push_back(std::to_string(r.address) + " " + std::to_string(r.count) + ": " +
                          hex(r.data));
            write_data_to_local(r);
        }
        driver.writeList.clear();
        return out;
    }
};

}  // namespace

// Words arrive high byte first, bit groups bits 0..7 first; bits of words live in area 14's words;
// a short reply stores the whole words it holds. The word read of a bit-of-word write completes
// the queued write frame instead, with the queued write's bit (not the head of writeList's) and a
// fresh CRC; it needs a whole word and a write in writeList.
TEST_F(RegisterImage, ReadRepliesAreStoredOrCompleteBitOfWordWrites) {
    QByteArray stray = withCrc(bytesOf("01 20 02 12 34"));
    SaveToLocalDataErea(&stray);  // nothing queued
    SaveToLocalDataErea(nullptr);
    store(var(korvan::kAreaBitOfWord, 7, 1), "00 09");
    store(var(14, 7, 1), "00 01");  // the same word: the later store wins
    store(var(14, 7, 1, 2), "00 02");
    store(var(15, 7, 1), "00 03");
    read_register(var(2, 1, 3));
    QByteArray shortReply = bytesOf("01 20 06 12 34 56");
    SaveToLocalDataErea(&shortReply);
    RW_VAR clearing = writeVar(korvan::kAreaBitOfWord, 163, 1, "00");
    AddListWriteVar(&clearing);
    const char* const cases[][4] = {
        // bit, value, word read, the write completed
        {"163", "01", "00 10", "01 21 80 00 00 0A 00 01 02 00 18 93 ED"},
        {"164", "00", "00 10", "01 21 80 00 00 0A 00 01 02 00 00 93 E7"},
        {"175", "", "FF FF", "01 21 80 00 00 0A 00 01 02 7F FF F3 97"},  // empty clears too
        {"163", "01", "00", "01 21 80 00 00 0A 00 01 02 00 00 00 00"},
    };
    for (const auto& [bit, value, wordRead, write] : cases) {
        driver.requestQueue.clear();
        write_analog_bit(writeVar(korvan::kAreaBitOfWord, std::atoi(bit), 1, value));
        QByteArray reply = withCrc(bytesOf("01 20 02") + bytesOf(wordRead));
        SaveToLocalDataErea(&reply);
        ASSERT_EQ(driver.requestQueue.size(), 2);
        EXPECT_EQ(hex(request(1).frame), write) << bit << " " << value << " " << wordRead;
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
    EXPECT_EQ(image(),
              (Image{{key(2, 1), 0x3412}, {key(14, 7), 1}, {key(14, 7, 2), 2}, {key(15, 7), 3}}));
}

// A read reply's data span dataLength bytes from dataOffset, walked word by word: a word starting
// inside the span is stored, unless its second byte lies beyond the bytes received, whatever the
// host's buffer holds after them; through the store the host may call and through judging.
TEST_F(RegisterImage, ReplySpansAreWalkedWordByWord) {
    const QByteArray reply = withCrc(bytesOf("01 20 04 11 22 33 44"));  // CRC 4C 95 at 7 and 8
    const int any = korvan::kReplyAnyLength;
    // judged first, data length, the reply length expected, words 7..10 as the host reads them
    const std::tuple<bool, int, int, const char*> cases[] = {
        // clang-format off
        {false, 4, 9, "22 11 44 33 00 00 00 00"}, {false, 3, 9, "22 11 44 33 00 00 00 00"},
        {false, 1, 9, "22 11 00 00 00 00 00 00"}, {false, 6, 9, "22 11 44 33 95 4C 00 00"},
        {false, 7, 9, "22 11 44 33 95 4C 00 00"},  // byte 9 is none of the reply's
        {true, 3, 9, "22 11 44 33 00 00 00 00"},
        {true, 7, any, "22 11 44 33 95 4C 00 00"},  // nor of the 9 bytes received
        // clang-format on
    };
    for (const auto& [judged, dataLength, replyLength, words] : cases) {
        driver.registerCache.clear();
        driver.requestQueue.clear();
        read_register(var(14, 7, 4));
        driver.requestQueue.first().dataLength = dataLength;
        driver.requestQueue.first().replyLength = replyLength;
        QByteArray buffer = reply + bytesOf(judged ? "EE EE" : "");
        if (judged) {
            EXPECT_EQ(DealDataOfLocalArea(&buffer, reply.size()), korvan::kResultGood);
        } else {
            SaveToLocalDataErea(&buffer);
        }
        EXPECT_EQ(hex(read(14, "7", 4)), words) << judged << " " << dataLength;
    }
}

// Host buffers hold words low byte first, one byte per bit; what was never read, or a text or area
// that names nothing, reads as zero. The station is the port's, unless stations are per-variable
// or there is no port record.
TEST_F(RegisterImage, HostReadsOfWordsBitsAndBitsOfWords) {
    setWord(14, 100, 0x1208);
    setWord(14, 11, 0x0001);
    setWord(2, 0, 0x8000);
    setWord(2, 1, 0x0001);
    setWord(0, 0, 0x8000);
    const Image before = image();
    const int bitOfWord = korvan::kAreaBitOfWord, done = korvan::kReadDone,
              notParsed = korvan::kAddressNotParsed;
    // area, address, count, the buffer, the result; a negative count keeps the buffer's length
    const std::tuple<int, const char*, int, const char*, int> cases[] = {
        // clang-format off
        {14, "100", 2, "08 12 00 00", done}, {2, "15", 3, "01 01 00", done}, {0, "17", 2, "01 00", done},
        {bitOfWord, "100.3", 2, "01 00", done}, {bitOfWord, "10.15", 2, "00 01", done},
        {14, "0", 0, "", done}, {14, "abc", 4, "00 00 00 00 00 00 00 00", notParsed},
        {bitOfWord, "1.2.3", 3, "00 00 00 00 00 00", notParsed},
        {30, "5", 3, "00 00 00 00 00 00", done}, {2, "0", -1, "00 00 00 00 00 00 00 00", done},
        {14, "x", -3, "00 00 00 00 00 00 00 00", notParsed}, {14, "0", INT_MAX, "", done},
        // clang-format on
    };
    for (const auto& [area, address, count, expected, result] : cases) {
        const std::string buffer = hex(read(area, address, count));
        EXPECT_EQ(buffer + " " + std::to_string(readResult),
                  expected + (" " + std::to_string(result)))
            << area << " " << address;
    }
    EXPECT_EQ(GetRegisterData(QString(), 14, QString::fromLatin1("0"), 1, nullptr, 4), notParsed);
    EXPECT_EQ(image(), before);  // reads never insert
    setWord(14, 7, 0xBEEF, 5);
    info.defaultStation = 5;
    const std::string portStation = hex(read(14, "7", 1, 1));
    info.perVarStation = 1;
    const std::string ownStation = hex(read(14, "7", 1, 1)) + hex(read(14, "7", 1, 5));
    SetComInfo(nullptr);
    EXPECT_EQ(portStation + "|" + ownStation + "|" + hex(read(14, "7", 1, 5)),
              "EF BE|00 00EF BE|EF BE");
}

// kWriteToPlc queues records of the block length the port record holds now (below 1 counts as 1),
// bit records eight times as long, bits of words one each, zero where the host handed no bytes,
// with the host variable and the port's station unless stations are per-variable.
TEST_F(RegisterImage, HostWritesAreCutIntoRecords) {
    info.writeMode = korvan::kWriteToPlc;
    info.remoteMode = 5;
    info.defaultStation = 3;
    // block length, area, address, values, count, records
    const std::tuple<int, int, const char*, const char*, int, Records> cases[] = {
        // clang-format off
        {2, 14, "100", "01 00 02 00 03 00", 3, {"100 2: 01 00 02 00", "102 1: 03 00"}},
        {1, 3, "5", "0100000000000001 0001000000000000 01010001", 20, {"5 8: 81", "13 8: 02", "21 4: 0B"}},
        {0, 14, "5", "", 3, {"5 1: 00 00", "6 1: 00 00", "7 1: 00 00"}},
        {INT_MAX, 2, "5", "", 17, {"5 17: 00 00 00"}},
        {100, 14, "5", "01 02 03", 3, {"5 3: 01 02 03 00 00 00"}},
        {100, 2, "20", "01 00 01 01 00 00 00 00 00 01", 10, {"20 10: 0D 02"}},
        {100, korvan::kAreaBitOfWord, "10.15", "01 00", 2, {"175 1: 01", "176 1: 00"}},
        // clang-format on
    };
    for (const auto& [maxUnits, area, address, values, count, expected] : cases) {
        info.maxUnits = maxUnits;
        write(area, address, values, count, 7, 8, 9);
        const RW_VAR& r = driver.writeList.first();
        EXPECT_EQ(std::vector<int>(
                      {r.ownerId, r.itemId, r.direction, r.remoteMode, r.port, r.area, r.station}),
                  std::vector<int>({7, 8, korvan::kDirectionWrite, 5, 1, area, 3}));
        EXPECT_EQ(r.nameText + r.addressText, QString::fromLatin1("tag") + address);
        EXPECT_EQ(records(), expected) << maxUnits;
    }
    info.perVarStation = 1;  // a null buffer writes zeros
    EXPECT_EQ(SetRegisterData(QString(), 2, QString::fromLatin1("0"), 9, nullptr, 9, 0, 0), 1);
    const RW_VAR& r = driver.writeList.first();
    EXPECT_EQ(hex(r.data) + " at " + std::to_string(r.station), "00 00 at 9");
}

// With kWriteToPlc the image shows a write once its frame is built, or at once while the link is
// down; other modes at once. Mirroring changes only the bits written (bits 20..29: bits 4..13 of
// word 1) and takes only what the payload carries. What names nothing, or over 2^20 units, is
// refused whole; anything less is written in full.
TEST_F(RegisterImage, WhatHostWritesShowAndWhatTheyRefuse) {
    setWord(2, 1, 0xFFFF);
    setWord(14, 11, 0xFFFF);
    info.writeMode = korvan::kWriteToPlc;
    EXPECT_EQ(write(14, "50", "34 12", 1), 1);
    driver.commFailed = 1;
    const int bitOfWord = korvan::kAreaBitOfWord, notParsed = korvan::kAddressNotParsed;
    // area, address, count, the result: for a text that parses, the list's size
    // clang-format off
    const std::array<std::tuple<int, const char*, int, int>, 6> refused{{
        {bitOfWord, "1.2.3", 1, notParsed}, {14, "abc", 1, notParsed}, {30, "5", 1, 1}, {-1, "5", 1, 1},
        {14, "5", 0, 1}, {14, "5", -4, 1}}};
    // clang-format on
    for (const auto& [area, address, count, result] : refused) {
        EXPECT_EQ(write(area, address, "01 00", count), result) << area << " " << address;
    }
    EXPECT_TRUE(write(2, "20", "01 00 01 01 00 00 00 00 00 01", 10) == 2 &&
                write(bitOfWord, "10.15", "01 00", 2) == 4);
    driver.commFailed = 0;
    for (int mode : {int(korvan::kWriteImageOnly), 1, 3}) {
        info.writeMode = mode;
        EXPECT_EQ(write(14, "51", "78 56", 1), 4) << mode;
    }
    write_data_to_local(writeVar(4, 0, 40, "FF"));        // 8 bits for a count of 40
    write_data_to_local(writeVar(20, 3, 1, "01 02 03"));  // the odd byte is no whole word
    write_data_to_local(writeVar(31, 0, 1, "01 00"));     // no such area
    // clang-format off
    EXPECT_EQ(image(), (Image{{key(2, 1), 0xE0DF}, {key(4, 0), 0x00FF}, {key(14, 10), 0x8000},
                              {key(14, 11), 0xFFFE}, {key(14, 51), 0x5678}, {key(20, 3), 0x0201}}));
    // clang-format on
    driver.registerCache.clear();
    info.maxUnits = 1;
    write(14, "0", "", 3000);
    write(bitOfWord, "0.0", "", 3000 * 16);
    EXPECT_TRUE(driver.registerCache.size() == 3000 &&
                driver.registerCache.contains(key(14, 2999)));
    driver.registerCache.clear();
    write(14, "0", "", (1 << 20) + 1);
    write(2, "0", "", INT_MAX);
    EXPECT_TRUE(image().empty());
    SetComInfo(nullptr);
    EXPECT_EQ(write(14, "5", "01 00", 1), notParsed);
}
