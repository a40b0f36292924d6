// SPDX-License-Identifier: MIT
#include "tests/kit/profiles.h"

#include <lcms2.h>

#include <algorithm>
#include <cmath>

namespace profiles {

namespace {

Bytes bytes_of(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    Bytes bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    return bytes;
}

Bytes rgb(cmsCIExyY white, cmsCIExyYTRIPLE primaries, cmsToneCurve *curve) {
    cmsToneCurve *curves[] = {curve, curve, curve};
    const Bytes bytes = bytes_of(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return bytes;
}

constexpr cmsCIExyY d65{0.3127, 0.3290, 1}, d50{0.3457, 0.3585, 1};

// A profile with tables: `forth` to Lab and, if there is one, `back`.
Bytes by_tables(cmsColorSpaceSignature space, cmsProfileClassSignature kind, uint32_t channels, uint32_t points,
                cmsSAMPLER16 forth, cmsSAMPLER16 back) {
    cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
    cmsSetProfileVersion(profile, 2.1);
    cmsSetDeviceClass(profile, kind);
    cmsSetColorSpace(profile, space);
    cmsSetPCS(profile, cmsSigLabData);
    cmsWriteTag(profile, cmsSigMediaWhitePointTag, cmsD50_XYZ());
    const auto write = [&](cmsTagSignature tag, uint32_t in, uint32_t out, uint32_t grid, cmsSAMPLER16 sampler) {
        cmsPipeline *pipeline = cmsPipelineAlloc(nullptr, in, out);
        cmsStage *table = cmsStageAllocCLut16bit(nullptr, grid, in, out, nullptr);
        cmsStageSampleCLut16bit(table, sampler, nullptr, 0);
        cmsPipelineInsertStage(pipeline, cmsAT_END, table);
        cmsWriteTag(profile, tag, pipeline);
        cmsPipelineFree(pipeline);
    };
    write(cmsSigAToB0Tag, channels, 3, points, forth);
    if (back) write(cmsSigBToA0Tag, 3, channels, 9, back);
    return bytes_of(profile);
}

// Lab as tables of version 2 have it.
void put_lab(double lightness, double a, double b, cmsUInt16Number *out) {
    const cmsCIELab lab{std::clamp(lightness, 0.0, 100.0), std::clamp(a, -127.0, 127.0), std::clamp(b, -127.0, 127.0)};
    cmsFloat2LabEncodedV2(out, &lab);
}

cmsInt32Number from_ink(const cmsUInt16Number *in, cmsUInt16Number *out, void *) {
    double ink[4];
    for (int i = 0; i < 4; i++) ink[i] = in[i] / 65535.0;
    const double black = 1 - 0.85 * ink[3];
    put_lab((100 - 35 * ink[0] - 40 * ink[1] - 8 * ink[2]) * black + 5 * ink[3], (75 * ink[1] - 35 * ink[0]) * black,
            (90 * ink[2] - 50 * ink[0]) * black, out);
    return 1;
}
cmsInt32Number to_ink(const cmsUInt16Number *in, cmsUInt16Number *out, void *) {
    cmsCIELab lab;
    cmsLabEncoded2FloatV2(&lab, in);
    const double black = std::clamp(1 - lab.L / 60, 0.0, 1.0);
    const double inks[] = {-lab.a / 60, lab.a / 75, lab.b / 90, black};
    for (int i = 0; i < 4; i++) out[i] = static_cast<cmsUInt16Number>(65535 * std::clamp(inks[i], 0.0, 1.0));
    return 1;
}
cmsInt32Number from_rgb(const cmsUInt16Number *in, cmsUInt16Number *out, void *) {
    const double r = in[0] / 65535.0, g = in[1] / 65535.0, b = in[2] / 65535.0;
    put_lab(100 * std::cbrt(0.25 * r * r + 0.65 * g * g + 0.1 * b * b), 80 * (r - g), 80 * (g - b), out);
    return 1;
}

} // namespace

Bytes srgb() { return bytes_of(cmsCreate_sRGBProfile()); }
Bytes wide_gamut() {
    return rgb(d65, {{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}}, cmsBuildGamma(nullptr, 2.19921875));
}
Bytes screen_p3() {
    const double curve[] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    return rgb(d65, {{0.68, 0.32, 1}, {0.265, 0.69, 1}, {0.15, 0.06, 1}},
               cmsBuildParametricToneCurve(nullptr, 4, curve));
}
Bytes photographic() {
    return rgb(d50, {{0.7347, 0.2653, 1}, {0.1596, 0.8404, 1}, {0.0366, 0.0001, 1}}, cmsBuildGamma(nullptr, 1.8));
}
Bytes grey(double gamma) {
    cmsToneCurve *curve = cmsBuildGamma(nullptr, gamma);
    const Bytes bytes = bytes_of(cmsCreateGrayProfile(&d50, curve));
    cmsFreeToneCurve(curve);
    return bytes;
}
Bytes rgb_by_table() { return by_tables(cmsSigRgbData, cmsSigInputClass, 3, 17, from_rgb, nullptr); }
Bytes printing() { return by_tables(cmsSigCmykData, cmsSigOutputClass, 4, 9, from_ink, to_ink); }

} // namespace profiles
