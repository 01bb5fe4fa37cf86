// quelix-chimewav <out.wav>
// Writes the new-message sound: a short two-note chime (E6 then B5, 0.32 s in all),
// 16-bit mono PCM at 22,050 Hz, each note with a quick attack and an exponential fade so
// that it neither clicks nor drones.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

void put16(std::vector<unsigned char>& out, unsigned v) {
    out.push_back(static_cast<unsigned char>(v & 0xff));
    out.push_back(static_cast<unsigned char>((v >> 8) & 0xff));
}

void put32(std::vector<unsigned char>& out, std::uint32_t v) {
    put16(out, v & 0xffff);
    put16(out, v >> 16);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: quelix-chimewav out.wav\n");
        return 2;
    }
    const int rate = 22050;
    const double pi = 3.14159265358979323846;
    struct Note {
        double freq, start, length;
    };
    const Note notes[] = {{1318.5, 0.0, 0.16}, {987.8, 0.12, 0.20}};
    const int total = int(rate * 0.32);
    std::vector<double> mix(total, 0.0);
    for (const Note& n : notes) {
        const int first = int(n.start * rate), count = int(n.length * rate);
        for (int i = 0; i < count && first + i < total; ++i) {
            const double t = double(i) / rate;
            const double attack = std::fmin(1.0, t / 0.004);
            const double fade = std::exp(-t * 18.0);
            // A touch of the octave makes it bell-like rather than a bare beep.
            const double wave =
                std::sin(2 * pi * n.freq * t) + 0.25 * std::sin(4 * pi * n.freq * t);
            mix[first + i] += 0.45 * attack * fade * wave;
        }
    }
    std::vector<unsigned char> wav;
    const std::uint32_t dataBytes = std::uint32_t(total) * 2;
    for (char c : {'R', 'I', 'F', 'F'}) wav.push_back(static_cast<unsigned char>(c));
    put32(wav, 36 + dataBytes);
    for (char c : {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '})
        wav.push_back(static_cast<unsigned char>(c));
    put32(wav, 16);
    put16(wav, 1);  // PCM
    put16(wav, 1);  // mono
    put32(wav, rate);
    put32(wav, rate * 2);
    put16(wav, 2);
    put16(wav, 16);
    for (char c : {'d', 'a', 't', 'a'}) wav.push_back(static_cast<unsigned char>(c));
    put32(wav, dataBytes);
    for (double s : mix) {
        const double clipped = std::fmax(-1.0, std::fmin(1.0, s));
        put16(wav, static_cast<unsigned>(static_cast<std::int16_t>(std::lround(clipped * 32000))) &
                       0xffff);
    }
    std::FILE* f = std::fopen(argv[1], "wb");
    if (!f || std::fwrite(wav.data(), 1, wav.size(), f) != wav.size()) {
        std::fprintf(stderr, "cannot write %s\n", argv[1]);
        if (f) std::fclose(f);
        return 1;
    }
    return std::fclose(f) == 0 ? 0 : 1;
}
