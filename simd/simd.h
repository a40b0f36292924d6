// SPDX-License-Identifier: MIT
//
// The vocabulary that kernels are written in. The build names the file that defines it for the variant being compiled
// (cmake/variants.cmake): avx2.h, avx512.h or neon.h, or plain.h, which has no registers and leaves kernels to their plain
// loops. Those files, and x86.h, which two of them share, are the only ones with intrinsics. Everything here has internal
// linkage, so that nothing compiled for one instruction set can be linked into another.
//
// A register consists of parts of 16 bytes. Shuffling, unpacking and narrowing work within each part, because the
// instructions of x86 do; interleave_parts() and deinterleave_parts() move elements between parts. Arithmetic, shifts and
// comparisons of lanes are the compiler's own operators. Bytes, Words16, Words32 and Words64 are registers of 32 bytes,
// with WideBytes and so on as wide as the variant has them.
//
//     shuffle           each byte from any place in its part, or zero where the order says 0x80
//     unpack_low/high   interleaves the elements of the low or the high halves of each part
//     narrow            two registers to one of lanes half as wide, into which the values must fit
//     repeat_half       16 bytes of memory in every part (repeat_part for a wide register)
//     load_halves       16 bytes from each of two addresses (load_parts for a wide register: from each of several rows)
//     reverse           the elements of a register from the last to the first
//     average_up        of bytes, rounded up
//     multiply_add      products of 16-bit words as signed numbers, in pairs added
//     multiply_add_bytes, sum_products   products of bytes, both below 128 or one of them, in pairs or fours added
//     store_low12       the low 12 bytes of each part, without gaps
//     Window, Pairs, Quads               which pixels of a line go to which lanes
//
// Ends of runs: the last block of a run overlaps the one before, which costs nothing where source and destination differ,
// and little in place, where it is computed first. A run shorter than a block has none before: it goes through a padded
// buffer (read_padded, write_part), is masked (AVX-512), or is left to a plain loop where whole pixels are picked.
#pragma once

#include IMG_SIMD
