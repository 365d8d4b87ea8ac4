// The way to the wall: a local socket to whoever takes the stream in (play as task 0 of a job, or a
// recorder). What is sent is a stream as in a file, the handshake first; each frame is answered
// when the wall has shown it. Once the other side is gone, nothing more is sent, and the program
// goes on.
#pragma once

#include "capture/locks.h"
#include "client/captureRing.h"
#include "wire/framing.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

struct ShareGroup;

/// How the wall shows a context: by its calls, or by its finished pictures. `automatic`: by its
/// calls if the stream carries its version.
enum class Showing { automatic, calls, pictures };

/// How finished pictures are enlarged. `automatic`: sharp from twice their size on.
enum class Enlarging { automatic, smooth, sharp };

/// How the program is captured, from the environment: captureVariables.h has the names.
struct CaptureOptions {
    const char* socket = nullptr;
    int ahead = 2;
    long frames = 0;
    const char* window = nullptr;
    Showing showing = Showing::automatic;
    const char* fit = nullptr;
    Enlarging enlarging = Enlarging::automatic;
    int samples = 0;
    int wallWidth = 0, wallHeight = 0; // 0: none
    int patience = 10;
    int keep = 128; // MiB
    bool serial = false, verbose = false;
};
extern CaptureOptions captureOptions;

/// Reads the environment. Once, before all else.
void readCaptureOptions();

/// False once nothing is to be sent any more: no capture was asked for, or the other side is gone.
extern std::atomic<bool> capturing;

/// What is current on the wall behind what was sent.
struct WallCurrent {
    const ShareGroup* group = nullptr;
    std::uint32_t window = 0;
};
extern WallCurrent wallCurrent;

/// Connects, if that has not been done: false when there is no wall. Waits for its answer, and so
/// without streamLock. `firstHandle` is then how many handles of contexts, visuals and windows
/// programs before this one have used up.
bool connectToWall();
extern std::uint32_t firstHandle;

// What follows, down to sendShown, is for who holds a StreamLock.

/// Whether that has been done.
bool isConnected();

/// Bytes of a command buffer in pieces.
void sendBuffer(std::span<const std::span<const unsigned char>> pieces, bool endsFrame);

/// Room in the memory that is shared with the other side, for a buffer that is to be written there
/// and then sent by sendReserved, as much of it as was written; empty when there is none.
std::span<unsigned char> reserveRoom(std::size_t bytes);
void sendReserved(std::span<unsigned char> room, std::size_t written, bool endsFrame);
void giveRoomBack(std::span<unsigned char> room);

/// The wall's process is to watch a window of the program's that is shown now, or (0) none is.
void sendShown(std::uint32_t window, std::uint32_t wallWindow, bool doubleBuffered,
               const char* displayName);

/// Adds to a figure of the program's. Any thread.
void note(Figure figure, std::uint64_t more);

/// True once as many frames were sent as were asked for.
bool allFramesSent();

/// Waits until no more frames than allowed are on their way, or until patience is at an end. Any
/// thread.
void waitForFrames();
