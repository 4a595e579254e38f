// For benchmarks: libavcodec as a peer, with a converter to RGBA8. Decoder and converter are opened
// in advance.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

struct AV_DECODER {
    AVCodecContext *Codec = nullptr;
    SwsContext *Converter = nullptr;
    AVFrame *Frame = av_frame_alloc();
    std::vector<AVPacket *> Packets;

    AV_DECODER() = default;
    AV_DECODER(const AV_DECODER &) = delete;
    AV_DECODER &operator=(const AV_DECODER &) = delete;
    ~AV_DECODER()
    {
        for (AVPacket *packet : Packets)
            av_packet_free(&packet);
        av_frame_free(&Frame);
        sws_freeContext(Converter);
        avcodec_free_context(&Codec);
    }
};

inline bool OpenDecoder(AV_DECODER &decoder, AVCodecID id, const AVCodecParameters *parameters)
{
    const AVCodec *codec = avcodec_find_decoder(id);
    decoder.Codec = avcodec_alloc_context3(codec);
    decoder.Codec->thread_count = 1;
    if (parameters)
        avcodec_parameters_to_context(decoder.Codec, parameters);
    return avcodec_open2(decoder.Codec, codec, nullptr) == 0;
}

/// For a file that is one picture in one packet: reads it each time.
inline void ReadPicture(AV_DECODER &decoder, const char *path)
{
    for (AVPacket *packet : decoder.Packets)
        av_packet_free(&packet);
    decoder.Packets.assign(1, av_packet_alloc());
    const std::unique_ptr<FILE, int (*)(FILE *)> file(std::fopen(path, "rb"), std::fclose);
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    std::rewind(file.get());
    AVPacket *packet = decoder.Packets[0];
    av_new_packet(packet, static_cast<int>(size));
    packet->size = static_cast<int>(
        std::fread(packet->data, 1, static_cast<size_t>(packet->size), file.get()));
}

/// For a file with a demuxer of its own: reads its packets into memory in advance.
inline bool OpenContainer(AV_DECODER &decoder, const char *path)
{
    AVFormatContext *format = nullptr;
    if (avformat_open_input(&format, path, nullptr, nullptr) != 0)
        return false;
    AVPacket *packet = av_packet_alloc();
    for (; av_read_frame(format, packet) == 0; packet = av_packet_alloc())
        decoder.Packets.push_back(packet);
    av_packet_free(&packet);
    const AVCodecParameters *parameters = format->streams[0]->codecpar;
    const bool opened = OpenDecoder(decoder, parameters->codec_id, parameters);
    avformat_close_input(&format);
    return opened;
}

/// Decodes all packets, each into its own picture; returns the number of pictures.
inline size_t DecodeAll(AV_DECODER &decoder)
{
    size_t count = 0;
    for (AVPacket *packet : decoder.Packets) {
        if (avcodec_send_packet(decoder.Codec, packet) != 0)
            break;
        while (avcodec_receive_frame(decoder.Codec, decoder.Frame) == 0) {
            AVFrame *f = decoder.Frame;
            count++;
            const auto from = static_cast<AVPixelFormat>(f->format);
            decoder.Converter = sws_getCachedContext(decoder.Converter, f->width, f->height, from,
                                                     f->width, f->height, AV_PIX_FMT_RGBA,
                                                     SWS_POINT, nullptr, nullptr, nullptr);
            const std::unique_ptr<uint8_t, void (*)(void *)> rgba(
                static_cast<uint8_t *>(std::malloc(static_cast<size_t>(f->width) *
                                                   static_cast<size_t>(f->height) * 4)),
                std::free);
            uint8_t *planes[] = {rgba.get()};
            const int strides[] = {f->width * 4};
            sws_scale(decoder.Converter, f->data, f->linesize, 0, f->height, planes, strides);
        }
    }
    avcodec_flush_buffers(decoder.Codec);
    return count;
}
