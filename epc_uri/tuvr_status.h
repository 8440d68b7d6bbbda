/* SPDX-License-Identifier: MIT */
/* The values that the functions of tuvr.h return. The fields are checked in the order of the
 * bits, and the first fault is returned. The numbers appear in tag reports, so a number never
 * gets another meaning. */
#ifndef TARNWICK_TUVR_STATUS_H
#define TARNWICK_TUVR_STATUS_H

enum tuvr_status_e {
    TUVR_OK = 0,
    /* A null pointer, or a size of 0 or less. */
    TUVR_BAD_ARGUMENT = 1,
    /* A character that is not a hexadecimal digit, anywhere in the text. */
    TUVR_BAD_HEX = 2,
    /* An empty text, an odd number of digits, or fewer bits than the scheme needs. */
    TUVR_WRONG_LENGTH = 3,
    /* No scheme has this header: 00 (not programmed), E2 (a TID), and others. */
    TUVR_UNKNOWN_HEADER = 4,
    /* Partition value 7. */
    TUVR_BAD_PARTITION = 5,
    /* A number with more digits, or a text with more characters, than its field may have. */
    TUVR_OUT_OF_RANGE = 6,
    /* Bits that must be zero are not: reserved ones, or those behind the end of a text. */
    TUVR_BAD_PADDING = 7,
    /* A character that the field does not allow. */
    TUVR_BAD_CHARACTER = 8,
    /* A text without a character where there must be one. */
    TUVR_EMPTY_FIELD = 9,
    /* The URI and its NUL do not fit. */
    TUVR_BUFFER_TOO_SMALL = 10
};

#endif
