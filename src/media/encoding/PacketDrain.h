#pragma once

#include <functional>

struct AVCodecContext;
struct AVPacket;

// Where an encoder's packets go; a negative return stops the drain with that error.
using PacketSink = std::function<int(AVPacket*)>;

// Hands every packet the encoder has ready to `sink`. "Try again" and "end of file" are the
// normal end of a drain, not errors. Thread: the encoder's worker.
int drainEncoder(AVCodecContext* context, AVPacket* packet, const PacketSink& sink);
