// SPDX-License-Identifier: MIT
//
// The vocabulary that kernels are written in. The build names the file that defines it for the variant being compiled
// (cmake/variants.cmake): avx2.h, avx512.h or neon.h, or plain.h, which has no registers and leaves kernels to their
// plain loops. Those files, and x86.h, which two of them share, are the only ones with intrinsics. Everything here has
// internal linkage, so that nothing compiled for one instruction set can be linked into another.
//
// Bytes, Words16, Words32 and Words64 are registers of 32 bytes; WideBytes, WideWords16 and WideWords32 are as wide as
// the variant has them. A register consists of parts of 16 bytes: shuffling, unpacking and narrowing work within each
// part, because the instructions of x86 do. Arithmetic and shifts of lanes are the compiler's own operators.
//
//     load, store, stream                anywhere; past the caches, to aligned addresses
//     load_halves, load_parts            16 bytes from each of two addresses, or of as many rows as there are parts
//     repeat_half, repeat_part           16 bytes of memory in every part
//     load_widened                       16 bytes of memory as 16-bit words
//     shuffle                            each byte from any place in its part, or zero where the order says 0x80
//     unpack_low, unpack_high            interleave the elements of the low, or high, halves of each part
//     narrow                             two registers to one of lanes half as wide, into which the values must fit
//     interleave_parts, deinterleave_parts   mend what narrowing and unpacking within parts does to the order
//     reverse                            the elements of a register from the last to the first
//     pick_byte                          one byte of each 32-bit word of four registers
//     store_low12                        the low 12 bytes of each part, without gaps
//     larger, equal, average_up          of bytes; equal ones give 0xff, others 0; averages are rounded up
//     multiply_high                      the upper halves of products of 16-bit words
//     multiply_add                       products of signed 16-bit words, added in pairs to 32-bit words
//     add_products                       the same, added to sums
//     multiply_add_bytes, sum_products   products of bytes with weights below 128, added in pairs, or in fours
//     not_or, select_by_top_bit          ~v | bits; lanes of one register or another
//     Window, store_lanes                pixels of a line picked into 32-bit lanes, and stored from there without gaps
//     Pairs, Quads                       pixels of a line parted into the first and the second ones of pairs
//     permute, load_first, store_first   where permutes_bytes: any byte to any place; parts of a register in memory
//     Table256                           where looks_up_256: one byte of each of 256 entries
//     read_padded, write_part            a run shorter than a block into a buffer, padded, and out of it
//
// Ends of runs: the last block of a run overlaps the one before, which costs nothing between buffers, and in place
// little: it is computed first. A run shorter than a block goes through a padded buffer. Two exceptions are faster
// where they are: masks, where there are any (permutes_bytes), and a loop over pixels where a block of pixels is not a
// block of bytes.
#pragma once

#include IMG_SIMD
