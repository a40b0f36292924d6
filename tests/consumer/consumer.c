/* What an application in C does outside the tree: loads a picture with the installed library. CONFIGFILE is what the build
   system said about the installation; PICTRA_CFGFILE of the environment goes before it. */
#include <pictra/pictra.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    img_lib_handle *lib = NULL;
    img_record image = {.format = FMT_XRGB8888HE, .flags = IMG_F_FORMAT};
    setenv("PICTRA_CFGFILE", CONFIGFILE, 0);
    img_status status = argc > 1 ? img_lib_attach(&lib) : IMG_ST_BADARG;
    if (status == IMG_ST_OK) status = img_load_file(lib, argv[1], NULL, &image);
    if (status == IMG_ST_OK) printf("%u x %u pixels\n", image.width, image.height);
    if (image.flags & IMG_F_DIRECT) free(image.data);
    img_lib_detach(lib);
    return (int)status;
}
