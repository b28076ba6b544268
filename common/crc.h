#ifndef CRC_H
#define CRC_H

// Block checksums over len bytes at p; 0 when len < 1.
unsigned char UInt8CheckSum(const unsigned char* p, int len);   // sum modulo 256
unsigned short UShortCheckSum(const unsigned char* p, int len); // sum modulo 65536
unsigned char XorUInt8CheckSum(const unsigned char* p, int len);
// CRC-16/ARC: start 0, update_crc_16 per byte, no final step.
unsigned short CRC16Calculate(const unsigned char* p, int len);

// One-byte CRC updates: the running CRC and the next byte (taken as 0..255
// whatever the signedness of char) give the new CRC. Start values and final
// inversions belong to the caller. The tables are built on first use, once,
// safely when several threads make that first call together.
unsigned short update_crc_16(unsigned short crc, char c);     // 0x8005 reflected
unsigned short update_crc_kermit(unsigned short crc, char c); // 0x1021 reflected
unsigned short update_crc_dnp(unsigned short crc, char c);    // 0x3D65 reflected
unsigned long update_crc_32(unsigned long crc, char c);       // 0x04C11DB7 reflected, 32 bits
unsigned short update_crc_ccitt(unsigned short crc, char c);  // 0x1021, MSB first
// SICK: no table; prev is the byte before c.
unsigned short update_crc_sick(unsigned short crc, char c, char prev);

#endif
