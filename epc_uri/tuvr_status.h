/* SPDX-License-Identifier: MIT */
/* What the functions of tuvr.h return. The numbers are part of the interface:
 * they appear in tag reports, so a number is never given another meaning. */
#ifndef TARNWICK_TUVR_STATUS_H
#define TARNWICK_TUVR_STATUS_H

enum tuvr_status_e {
    TUVR_OK = 0,
    TUVR_BAD_ARGUMENT = 1,     /* a null pointer, or a size of 0 or less */
    TUVR_BAD_HEX = 2,          /* a character that is no hexadecimal digit */
    TUVR_WRONG_LENGTH = 3,     /* no digits, an odd number of them, or fewer bits than the scheme needs */
    TUVR_UNKNOWN_HEADER = 4,   /* no scheme has this header: 00 (not programmed), E2 (a TID), and others */
    TUVR_BAD_PARTITION = 5,    /* partition value 7 */
    TUVR_OUT_OF_RANGE = 6,     /* a number with more digits, or a text with more characters, than its field */
    TUVR_BAD_PADDING = 7,      /* bits that must be zero are not: reserved ones, or after a text's end */
    TUVR_BAD_CHARACTER = 8,    /* a character that the field does not allow */
    TUVR_EMPTY_FIELD = 9,      /* a text without a character where there must be one */
    TUVR_BUFFER_TOO_SMALL = 10 /* the URI and its NUL do not fit */
};

#endif
