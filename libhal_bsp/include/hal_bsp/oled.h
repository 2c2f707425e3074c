/*
 * The front panel's OLED, through the character device at "/dev/x9oled": lines of text, prepared
 * cells, clearing, and the fonts that text is drawn with.
 *
 * A cell is 8 x 16 pixels in 16 bytes: bytes 0 to 7 are its upper 8 rows, bytes 8 to 15 its lower
 * 8; in each half byte k is pixel column k from the left, and bit 0 is the topmost row. A line is
 * at most HAL_OLED_CELLS cells. A Chinese character takes two cells, left and right; an ASCII
 * character takes one.
 *
 * Nothing is kept between calls. Each opens the node, makes its requests and closes it again; any
 * thread, several at the same time: what comes to the driver first is drawn first. The functions
 * are not cancellation points. Failures are logged at ERROR.
 *
 * What positions and panel numbers mean is the driver's to say; they go to it as they are.
 */
#ifndef HAL_BSP_OLED_H
#define HAL_BSP_OLED_H

#include <stdint.h>

#include <hal_bsp/export.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HAL_OLED_CELLS 16         /* cells of a line */
#define HAL_OLED_CELL_BYTES 16    /* bytes of a cell */
#define HAL_OLED_GLYPH_BYTES 32   /* bytes of a glyph of 16 x 16 pixels, in the file or as cells */
#define HAL_OLED_SQUARE_BYTES 128 /* bytes that convert2font writes */

#define HAL_OLED_ASCII_GLYPHS 95   /* the codes 0x20 to 0x7E */
#define HAL_OLED_GBK_ENTRIES 65535 /* the code points U+0000 to U+FFFE */

/* Kinds of text of an oled_string_req. */
#define HAL_OLED_CHARS 0       /* 8-bit characters */
#define HAL_OLED_CODE_POINTS 1 /* 32-bit code points, of which the low 16 bits count */

/*
 * A line of text to show. The text is the caller's and is only read. On the virtual board the
 * position is a row, 0 to 3, and in it the column of the first cell, 0 to 15.
 */
typedef struct oled_string_req {
    uint8_t pos1;      /* first position byte, for the driver */
    uint8_t pos2;      /* second position byte, for the driver */
    const void* data;  /* `len` values of the kind that `data_type` says */
    uint8_t data_type; /* HAL_OLED_CHARS or HAL_OLED_CODE_POINTS */
    uint8_t len;       /* how many; more than 16 are taken as 16 */
} oled_string_req;

/* One code point and what it is in GBK. */
typedef struct oled_gbk_entry {
    uint16_t unicode; /* the code point, equal to the entry's index */
    uint16_t gbk;     /* its code in code page 936, first byte high; 0 where it has none */
} oled_gbk_entry;

/* The ASCII glyphs, a cell each, in code order from 0x20 on. */
extern HAL_API const uint8_t F8X16[HAL_OLED_ASCII_GLYPHS][HAL_OLED_CELL_BYTES];

/* GBK codes (code page 936) by code point. One-byte codes stand for themselves. */
extern HAL_API const oled_gbk_entry unicode_to_gbk[HAL_OLED_GBK_ENTRIES];

/*
 * Shows a line of text on the panel `oled_index`. U+4E00 to U+9FA5 come from the font file (see
 * get_bytes_by_gbk for what they show without it), codes below 0x7F from F8X16, where control
 * characters are spaces; every other character is left out of the line with the error "The
 * content you have entered does not conform to the limits!".
 *
 * A line wider than 16 cells keeps the characters that fit, in order, up to the first that does
 * not; the cells behind them are blank, and 16 cells are sent. That is told at INFO (the width)
 * and at ERROR (the character that did not fit), and is a success. Returns
 *   the request's own result: 0 or more, shown
 *   -35  the node cannot be opened, `data_type` is neither of the two (as long as `len` is not
 *        0), the request was refused, or `req` is null, or its `data` where `len` is not 0.
 *        Nothing has changed on the panel
 */
HAL_API int32_t hal_oled_show_string(uint32_t oled_index, const oled_string_req* req);

/*
 * Clears the panel `oled_index`. Returns
 *   the request's own result: 0 or more, cleared
 *   -35  the node cannot be opened, or the request was refused
 */
HAL_API int32_t hal_oled_clear(uint32_t oled_index);

/*
 * Switches the display of the panel `oled_index` off (`state` 0) or on (1); the driver finds the
 * state in the first position word of the request. What is drawn is not touched. Returns
 *   the request's own result: 0 or more, done
 *   -35  the node cannot be opened, the request was refused, or `state` is neither 0 nor 1 (the
 *        driver is not asked then)
 */
HAL_API int32_t hal_oled_display_ctl(uint32_t oled_index, uint32_t state);

/*
 * Clears the panel `oled_index`, then draws `length` bytes of cells at a position. Only whole
 * cells are drawn; bytes beyond 256 are left out. Returns
 *   the second request's own result: 0 or more, drawn
 *   -35  the node cannot be opened, one of the two requests was refused (after the first the
 *        panel is clear), or `data` is null where `length` is not 0 (the driver is not asked
 *        then)
 */
HAL_API int32_t hal_oled_test(uint32_t oled_index, uint8_t pos1, uint8_t pos2, const void* data,
                              uint32_t length);

/*
 * The GBK code of a code point, from unicode_to_gbk; 0 where it has none, and for 0xFFFF, for
 * which the table has no entry.
 */
HAL_API uint16_t unicode_to_gbkcode(uint16_t unicode);

/*
 * Fetches the glyph of a GBK code from the font file "/usr/share/fonts/HZK16" into `glyph`, 32
 * bytes: 16 rows of two bytes, the highest bit on the left. The file is opened and closed in the
 * call. `glyph` is always filled: where the code has no place in the file, or the file is too
 * short or cannot be read, it gets the file's white square (0xA1F5), and where that cannot be had
 * either, or there is no file, a white square of the library's own. Codes whose bytes are not
 * those of GB2312 but lead into the file get what lies there. Returns
 *   the glyph's place in the file in bytes, 0 or more
 *   -1   the file cannot be opened or the glyph not read, or the code leads to a place before the
 *        file's start, as 0 does; or `glyph` is null, and nothing was done
 */
HAL_API int32_t get_bytes_by_gbk(uint16_t gbk, uint8_t glyph[HAL_OLED_GLYPH_BYTES]);

/*
 * Turns a glyph of the font file into its two cells, left then right. The two may be the same
 * buffer. A null `cells` does nothing, a null `glyph` clears the cells.
 */
HAL_API void font_convert(const uint8_t glyph[HAL_OLED_GLYPH_BYTES],
                          uint8_t cells[HAL_OLED_GLYPH_BYTES]);

/*
 * Turns a square glyph of `side` x `side` pixels, rows of side / 8 bytes with the highest bit on
 * the left, into bytes of 8 pixels that stand above one another, the topmost in the highest bit
 * (the lowest in a cell!): column after column of the upper 8 rows, then of the next 8. `columns`
 * gets 128 bytes, those that the glyph does not fill cleared. `side` is 8, 16, 24 or 32; one
 * that is not a multiple of 8 counts as the next lower, and one above 32 as 0: no glyph. A null
 * `columns` does nothing, a null `glyph` clears them. The two may be the same buffer.
 */
HAL_API void convert2font(const uint8_t* glyph, uint32_t side,
                          uint8_t columns[HAL_OLED_SQUARE_BYTES]);

#ifdef __cplusplus
}
#endif

#endif
