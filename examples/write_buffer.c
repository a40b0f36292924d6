/* SPDX-License-Identifier: MIT */
/* Draws into a buffer of its own and writes it as a picture, without a copy.
 * Usage: write_buffer TARGET */
#include <pictra/pictra.h>
#include <stdio.h>

enum { WIDTH = 256, HEIGHT = 64 };

int main(int argc, char **argv) {
    static uint8_t pixels[HEIGHT][WIDTH][3];
    img_lib_handle *lib = NULL;
    img_record image = {0};
    img_status status;

    if (argc != 2) return fprintf(stderr, "Usage: write_buffer TARGET\n"), 2;
    for (int y = 0; y < HEIGHT; y++)
        for (int x = 0; x < WIDTH; x++) {
            pixels[y][x][0] = (uint8_t)x;
            pixels[y][x][1] = (uint8_t)(4 * y);
            pixels[y][x][2] = 128;
        }

    image.data = pixels; /* stays ours */
    image.stride = sizeof pixels[0];
    image.width = WIDTH;
    image.height = HEIGHT;
    image.format = FMT_RGB888;
    image.flags = IMG_F_DIRECT | IMG_F_WIDTH | IMG_F_HEIGHT | IMG_F_FORMAT;

    status = img_lib_attach(&lib);
    if (status == IMG_ST_OK) status = img_write_file(lib, argv[1], NULL, &image);
    if (status != IMG_ST_OK) fprintf(stderr, "%s: status %u\n", argv[1], (unsigned)status);
    img_lib_detach(lib);
    return status != IMG_ST_OK;
}
