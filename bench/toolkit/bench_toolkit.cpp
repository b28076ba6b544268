// Throughput of the toolkit's hot paths: CRCs over a frame buffer, packing a
// typical request header, and a settings record's stream round trip.
#include "common/crc.h"
#include "common/devicesetting.h"
#include "common/packing.h"

#include <QByteArray>
#include <QDataStream>

#include <chrono>
#include <cstdio>

namespace
{

using Clock = std::chrono::steady_clock;

template <typename F> double secondsFor(F f)
{
    const auto start = Clock::now();
    f();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

volatile unsigned long sink; // keeps the optimiser from dropping the work

} // namespace

int main()
{
    QByteArray block(1 << 20, '\0');
    for (int i = 0; i < block.size(); ++i)
        block[i] = char(i * 131 + 7);
    const auto* bytes = reinterpret_cast<const unsigned char*>(block.constData());
    const int rounds = 32;

    const double crc16 = secondsFor([&] {
        for (int r = 0; r < rounds; ++r)
            sink = CRC16Calculate(bytes, block.size());
    });
    const double crc32 = secondsFor([&] {
        for (int r = 0; r < rounds; ++r) {
            unsigned long crc = 0xFFFFFFFFul;
            for (char c : block)
                crc = update_crc_32(crc, c);
            sink = crc;
        }
    });

    const int packs = 1000000;
    const double pack = secondsFor([&] {
        for (int i = 0; i < packs; ++i)
            sink = ByteArrayPack("CnnNv", 0x02, i, 0x1234, i, 0x0D0A).size();
    });

    DeviceSetting setting(device_type(64), QStringLiteral("COM1"), 9600, 8, 0, 2);
    for (int i = 0; i < 4; ++i)
        setting.socketList.append(qMakePair(QStringLiteral("192.168.0.%1").arg(i), quint16(502)));
    const int trips = 200000;
    const double stream = secondsFor([&] {
        for (int i = 0; i < trips; ++i) {
            QByteArray data;
            QDataStream out(&data, QIODevice::WriteOnly);
            out << setting;
            QDataStream in(data);
            DeviceSetting copy(device_type(0), QString(), 0, 0, 0, 0);
            in >> copy;
            sink = copy.socketList.size();
        }
    });

    const double megabytes = double(rounds) * block.size() / (1 << 20);
    std::printf("CRC-16 over %d MiB: %.3f s\n", int(megabytes), crc16);
    std::printf("CRC-32 over %d MiB: %.3f s\n", int(megabytes), crc32);
    std::printf("%d ByteArrayPack calls: %.3f s\n", packs, pack);
    std::printf("%d DeviceSetting stream round trips: %.3f s\n", trips, stream);
    std::printf("figure crc16_mib_per_s %.1f\n", megabytes / crc16);
    std::printf("figure crc32_mib_per_s %.1f\n", megabytes / crc32);
    std::printf("figure byte_array_pack_per_s %.0f\n", packs / pack);
    std::printf("figure device_setting_round_trips_per_s %.0f\n", trips / stream);
    return 0;
}
