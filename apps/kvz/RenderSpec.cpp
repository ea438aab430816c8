// SPDX-License-Identifier: MIT
// The options of `kvz render`, as its parser, --help, the manual page and the shells have them.
#include "Commands.h"
#include "ModelOptions.h"
#include "OutputOptions.h"

namespace Velmora::Kvz {

namespace {

QVector<OptionSpec> pictureOptions()
{
    QVector<OptionSpec> list;
    list += optionSpec("o,output", "FILE", "The picture, such as out.png; - is standard output.",
        "The suffix gives the format: .png, .jpg, .webp, .exr and what kvz formats lists; standard output gets PNG. An "
        ".exr holds linear "
        "light after exposure and before tone mapping, in half floats multiplied by alpha; of chains that end in "
        "display values these, decoded "
        "from sRGB, with a line. {model} is the name of the model "
        "without its folder and suffix, {view} what --camera says, {frame} the number of the "
        "picture from 0, {frame:04} with zeros up to four digits; {{ and }} are braces. More than"
        " one picture without places that tell them apart is refused before anything is drawn. An"
        " existing file is replaced only when the new picture is complete, and stays as it was "
        "when anything goes wrong.");
    list.last().isRequired = true;
    list.last().completion = Completion::File;
    list += optionSpec("size", "WxH", "Size of the picture in pixels. Default: 1280x720.");
    list.last().standard = QStringLiteral("1280x720");
    list += optionSpec("camera", "VIEW",
        "AZIMUTH,ELEVATION[,DISTANCE]; front, back, left, right,\n"
        "top, bottom, iso; ortho; fov=DEGREES; eye=, target=; or\n"
        "one of the file. Repeatable. Default: 30,20,1:fov=35.",
        "In degrees; parts are joined by \":\", and points are X,Y,Z. At AZIMUTH 0 the camera looks from +Z, at 90 "
        "from +X; ELEVATION is from -90 to 90; at "
        "DISTANCE 1 the model just fits. ortho gives parallel rays; fov is the vertical field of "
        "view. A camera that the file brings is named, or numbered from 0: Main, 0, or file=front"
        " where the name means something else. All that it frames is in the picture, which shows "
        "more at the sides, or above and below, where its proportions are others.");
    list.last().standard = QStringLiteral("30,20");
    list.last().isRepeatable = true;
    list.last().completion = Completion::Words;
    list.last().words = wordList("front back left right top bottom iso ortho eye= target= fov= file=");
    list += optionSpec("frames", "N", "Pictures, where -o has {frame}; else --samples.",
        "Where -o has no {frame}, it is the older name of --samples.");
    list.last().standard = QStringLiteral("1");
    list += optionSpec("orbit", "DEGREES", "Turns the camera from picture to picture.",
        "From sample to sample where -o has no {frame}. Around the vertical axis through the model, at one distance at "
        "which it fits in all of "
        "them. The first picture has VIEW; where the camera turns within a picture, the last "
        "sample has it.");
    list.last().standard = QStringLiteral("0");
    list += optionSpec("samples", "N", "Frames that go into each picture. Default: 1.",
        "Chains that gather frames, such as temporal and full, get finer with more of them; of "
        "others the last one is the picture.");
    list.last().standard = QStringLiteral("1");
    return list;
}

QVector<OptionSpec> chainOptions()
{
    QVector<OptionSpec> list;
    list += optionSpec("chain", "NAME|FILE",
        "Ready chain, as kvz chains lists them, or chain file.\n"
        "Default: studio.",
        "A name with a directory, or that ends in .json, is a file.");
    list.last().standard = QStringLiteral("studio");
    list.last().completion = Completion::Chain;
    list += optionSpec("set", "PASS.PORT=VALUE", "Sets a value of a pass: background.ColorTop=red.",
        "PORT is the name of an input of the pass, or its last word; kvz passes CLASS lists them."
        " VALUE is written as in a chain file; text needs no quotes. It takes the place of a "
        "connection. Relative file names count from the working directory.");
    list.last().isRepeatable = true;
    list += optionSpec("light", "LIGHT", "headlight, ambient, none; or a lamp that casts shadows.",
        "headlight is a lamp at the eye, ambient is light from everywhere; each may have an intensity, as in "
        "headlight:intensity=0.7, and what is "
        "not given is as in the chain. none puts the one fixed light of the basic passes in their place, and where "
        "there is a chain of the same name that ends in -basic, draws that. Lights that cast shadows replace those "
        "of the chain: directional, spot or point, then AZIMUTH,ELEVATION[,DISTANCE] in degrees and scene "
        "radii, or position=X,Y,Z; target=X,Y,Z, cone=DEGREES, range=LENGTH, intensity=NUMBER, "
        "cascades=N and bias=NUMBER as needed, joined by \":\".");
    list.last().isRepeatable = true;
    list.last().completion = Completion::Words;
    list.last().words = wordList("headlight ambient none directional spot point");
    return list;
}

QVector<OptionSpec> lookOptions()
{
    QVector<OptionSpec> list;
    list += optionSpec("environment", "NAME", "studio, daylight, white; or an image that gives light.",
        "A latitude-longitude image: Radiance .hdr, OpenEXR, or one of 8 bits in sRGB. Its strongest spot becomes a "
        "lamp "
        "with a shadow, unless --light gives others. What is worked out of an image is kept in the user's cache "
        "folder.");
    list.last().completion = Completion::File;
    list += optionSpec("environment-rotation", "DEGREES", "Turns it about the vertical axis.",
        "Against the clock, as seen from above.");
    list += optionSpec("exposure", "STOPS", "Brightness, each stop doubling it; or auto. Default: 0.",
        "Each stop doubles the light. auto brings what the model shows to a middle grey, whatever surrounds it.");
    list += optionSpec("tone-map", "NAME", "neutral, filmic or none: how bright light is shown.",
        "neutral keeps the colours that materials state, filmic has more contrast, none cuts bright light off.");
    list.last().completion = Completion::Words;
    list.last().words = wordList("neutral filmic none");
    list += optionSpec("background", "COLOUR", "Or none, environment, or an image: what lies behind.",
        "A colour is a name such as white, #rrggbb, or #rrggbbaa. It and an image are laid under the finished picture, "
        "instead of the chain's gradient or sky; the image keeps its proportions and is cut at two sides. environment "
        "shows the surroundings that give light. With none the picture has straight alpha. A chain whose last steps "
        "lose alpha refuses none in a line that names the pass.");
    list += optionSpec("transparency", "NAME", "sorted or weighted: how transparent surfaces blend.",
        "sorted is exact, and what chains with lists do; weighted costs less where many surfaces lie behind each "
        "other.");
    list.last().completion = Completion::Words;
    list.last().words = wordList("sorted weighted");
    list += optionSpec("no-ground", "", "Leaves out the model's shadow on the ground.");
    return list;
}

QVector<OptionSpec> modelOptions()
{
    QVector<OptionSpec> list = modelOptionSpecs();
    list += optionSpec("floor", "", "Puts a grey floor under the model.",
        "For shadows to fall on. It is a part of the scene, so camera, lights and shadow maps "
        "take it into account, and in the chain backdrop it fades into the picture.");
    list += optionSpec("image-budget", "MIB", "GPU memory for the images of a model. Default: 512.",
        "In MiB, with their mip levels. Where they take more, the largest are halved until they do not, with a "
        "warning.");
    list.last().standard = QStringLiteral("512");
    return list;
}

QVector<OptionSpec> resultOptions()
{
    QVector<OptionSpec> list;
    list += optionSpec("capture", "DIR", "Also writes what each pass gave in the last frame.",
        "Each image output of each pass, into this directory. Its name may have the places that "
        "-o may have.");
    list.last().completion = Completion::Folder;
    list += optionSpec("timings", "", "Prints GPU and CPU milliseconds for each pass.");
    list += optionSpec("json", "", "Prints one line of JSON for each picture.",
        "With file, model, view, frame, width, height, chain, samples, renderer, milliseconds by "
        "phase (load, upload, draw, write) and the warnings, which standard error has too; with "
        "--timings also the passes. What is done once for several pictures counts for the first "
        "of them.");
    list += optionSpec("quiet", "", "Prints errors alone: no warnings, no progress.");
    list += optionSpec("watch", "", "Renders again when a shader of the chain changes.",
        "Until Ctrl+C. A change that does not compile is reported, and the last picture stays.");
    return list;
}

} // namespace

CommandSpec renderCommand()
{
    CommandSpec command;
    command.name = QStringLiteral("render");
    command.summary = QStringLiteral("Renders models through a chain of passes into pictures.");
    command.detail = QStringLiteral("It needs no window, and any OpenGL 3.2 driver will do, software included. A "
                                    "picture is what a screen would show: "
                                    "opaque, unless --background none is given.\n\n"
                                    "One process draws the pictures of all models, from all cameras, in this order; "
                                    "none of them depends on another. A "
                                    "model that cannot be read is told of, and the others are drawn.");
    command.argument.name = QStringLiteral("MODEL");
    command.argument.help = QStringLiteral("OBJ, glTF, GLB, PLY, STL, ...; - is standard input.");
    command.argument.least = 1;
    command.argument.most = -1;
    command.argument.completion = Completion::File;
    command.examples = {
        {QStringLiteral("kvz render car.glb -o car.png"), QStringLiteral("a picture")},
        {QStringLiteral("kvz render car.glb --chain full --samples 32 -o car.png"), QStringLiteral("with all effects")},
        {QStringLiteral("kvz render car.glb --frames 36 --orbit 10 -o 'car-{frame:02}.png'"),
            QStringLiteral("a turntable")},
        {QStringLiteral("kvz render *.stl --camera front --camera iso -o '{model}-{view}.png'"),
            QStringLiteral("two views of each model")},
    };
    command.options =
        pictureOptions() + outputOptionSpecs() + chainOptions() + lookOptions() + modelOptions() + resultOptions();
    return command;
}

} // namespace Velmora::Kvz
