#include "client/receivePrograms.h"
#include "client/usedHandles.h"

void receivePrograms(CaptureSocket& socket, const ProgramReceiver& receiver)
{
    UsedHandles used;
    long frames = 0;
    bool busy = false;
    while (!receiver.isOver()) {
        const ReceiverWait wait = receiver.wait(busy);
        _hdr hdr{};
        std::span<const unsigned char> bytes;
        const Arrival arrival = waitForBuffer(socket, wait.microseconds, wait.otherFd, hdr, bytes);
        busy = arrival == Arrival::buffer;
        switch (arrival) {
        case Arrival::end:
            return;
        case Arrival::program:
            frames = 0;
            receiver.begins();
            break;
        case Arrival::programEnd: {
            CommandBuffer last;
            encodeGivingBack(last, used);
            if (!last.empty())
                receiver.take({static_cast<std::int32_t>(last.size()), 0}, last);
            receiver.ends(frames);
            socket.firstHandle = used.greatest;
            break;
        }
        case Arrival::buffer:
            noteHandles(used, bytes);
            receiver.take(hdr, bytes);
            frames += hdr.sync != 0;
            break;
        case Arrival::nothing:
            break;
        }
        answerFrames(socket, receiver.shown());
    }
}
