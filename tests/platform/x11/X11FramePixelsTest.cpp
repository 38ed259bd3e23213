#include "platform/x11/X11FramePixels.h"

#include <gtest/gtest.h>

#include <vector>

// The server's padding byte is whatever it was; every copied pixel comes out opaque, and a
// half-size copy takes every other pixel.
TEST(X11FramePixelsTest, CopyMakesOpaqueAndScales) {
    // 4 x 2 source, alpha bytes deliberately 0x00 and 0x37.
    std::vector<uint32_t> source = {0x00112233, 0x37445566, 0x00778899, 0x37aabbcc,
                                    0x00010203, 0x37040506, 0x00070809, 0x370a0b0c};
    std::vector<uint32_t> same(8, 0);
    X11FramePixels::copyOpaque(reinterpret_cast<uint8_t*>(source.data()), 16, 4, 2,
                               reinterpret_cast<uint8_t*>(same.data()), 16, 4, 2);
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(same[i], source[i] | 0xff000000u) << i;

    // Rows of five take the four-at-a-time path and then a single pixel.
    std::vector<uint32_t> five = {1, 2, 3, 4, 0x00abcdef};
    std::vector<uint32_t> fiveOut(5, 0);
    X11FramePixels::copyOpaque(reinterpret_cast<uint8_t*>(five.data()), 20, 5, 1,
                               reinterpret_cast<uint8_t*>(fiveOut.data()), 20, 5, 1);
    EXPECT_EQ(fiveOut, (std::vector<uint32_t>{0xff000001u, 0xff000002u, 0xff000003u, 0xff000004u,
                                              0xffabcdefu}));

    std::vector<uint32_t> half(2, 0);
    X11FramePixels::copyOpaque(reinterpret_cast<uint8_t*>(source.data()), 16, 4, 2,
                               reinterpret_cast<uint8_t*>(half.data()), 8, 2, 1);
    // Destination x 0, 1 take source x 0, 2 of row 0.
    EXPECT_EQ(half[0], 0xff112233u);
    EXPECT_EQ(half[1], 0xff778899u);
}

// Premultiplied "over", clipped at the edges: an opaque cursor pixel replaces, a half
// transparent one mixes, a clear one leaves the picture alone.
TEST(X11FramePixelsTest, CursorBlendsAndClips) {
    std::vector<uint32_t> picture(9, 0xff0000ffu); // 3 x 3 blue
    // 2 x 2 cursor placed at (2, -1): only its bottom-left pixel lands, at (2, 0).
    const uint32_t cursor[4] = {0xffffffffu, 0xffffffffu, 0x80800000u, 0x00000000u};
    X11FramePixels::blendCursor(cursor, 2, 2, 2, -1, reinterpret_cast<uint8_t*>(picture.data()), 12,
                                3, 3);
    // Red 0x80 premultiplied at alpha 0x80 over blue 0xff: red 0x80, blue 0xff * 127 / 255
    // = 127 (0x7f), rounded.
    EXPECT_EQ(picture[2], 0xff80007fu);
    for (size_t i : {0u, 1u, 3u, 4u, 5u, 6u, 7u, 8u})
        EXPECT_EQ(picture[i], 0xff0000ffu) << i;

    // Placed at (0, 0): the opaque white row replaces, the clear pixel leaves blue.
    X11FramePixels::blendCursor(cursor, 2, 2, 0, 0, reinterpret_cast<uint8_t*>(picture.data()), 12,
                                3, 3);
    EXPECT_EQ(picture[0], 0xffffffffu);
    EXPECT_EQ(picture[1], 0xffffffffu);
    EXPECT_EQ(picture[4], 0xff0000ffu);
}

// A window's rectangle takes the picture under it, clipped to the source; at half size each
// destination pixel shows the same source pixel copyOpaque gave it.
TEST(X11FramePixelsTest, PaintOverReplacesOnlyTheWindow) {
    // 4 x 2 "under" picture: pixel (x, y) holds 10 * y + x, alpha left 0.
    std::vector<uint32_t> under = {0, 1, 2, 3, 10, 11, 12, 13};
    const uint32_t grabbed = 0xff777777u;
    std::vector<uint32_t> frame(8, grabbed);
    // A window at (1, -5) of size 2 x 6 covers columns 1 and 2 of row 0 only.
    X11FramePixels::paintOver(under.data(), 4, 2, 1, -5, 2, 6,
                              reinterpret_cast<uint8_t*>(frame.data()), 16, 4, 2);
    EXPECT_EQ(frame, (std::vector<uint32_t>{grabbed, 0xff000001u, 0xff000002u, grabbed, grabbed,
                                            grabbed, grabbed, grabbed}));

    // Half size, 2 x 1: destination x 0, 1 show source x 0, 2 of row 0. A window over source
    // columns 2...3 covers destination x 1 alone; one over column 1 covers no shown pixel.
    std::vector<uint32_t> half(2, grabbed);
    X11FramePixels::paintOver(under.data(), 4, 2, 2, 0, 2, 2,
                              reinterpret_cast<uint8_t*>(half.data()), 8, 2, 1);
    EXPECT_EQ(half, (std::vector<uint32_t>{grabbed, 0xff000002u}));
    std::vector<uint32_t> untouched(2, grabbed);
    X11FramePixels::paintOver(under.data(), 4, 2, 1, 0, 1, 2,
                              reinterpret_cast<uint8_t*>(untouched.data()), 8, 2, 1);
    EXPECT_EQ(untouched, std::vector<uint32_t>(2, grabbed));

    // Wholly outside: nothing changes.
    X11FramePixels::paintOver(under.data(), 4, 2, 4, 0, 3, 3,
                              reinterpret_cast<uint8_t*>(frame.data()), 16, 4, 2);
    EXPECT_EQ(frame[3], grabbed);
}
