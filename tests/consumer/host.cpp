// A minimal host linked against the installed driver, as an integrator builds one. It reaches
// an extern "C" entry point, a C++ function and an exported global through the linker.
#include <korvan_qa_qb_series_port.h>

#include <cstdio>

int main() {
    int localBits = 0;
    FlashLocalRegister(&localBits, nullptr, nullptr);
    // The local read of 2 words at address 100 of station 1; its CRC is sent as 7F DB.
    unsigned char request[] = {0x01, 0x20, 0x80, 0x00, 0x00, 0x64, 0x00, 0x02};
    const bool works =
        PLCAddressChangeIntef(korvan::kAreaBitOfWord, QString::fromLatin1("10.3")) == 163 &&
        CalCRC(request, sizeof request) == 0xDB7F && LB == &localBits;
    std::puts(works ? "installed driver works" : "installed driver misbehaves");
    return works ? 0 : 1;
}
