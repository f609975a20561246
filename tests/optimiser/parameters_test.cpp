#include "optimiser/parameters.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <iostream>
#include <locale>
#include <tuple>

#include "support/said.h"

namespace morlu::osg {
namespace {

mergeGeo_setup setup_of(const std::string& text) {
  return readMergeGeoSetup(parseOptParams(text));
}
tree_options options_of(const std::string& text) {
  return readTreeOptions(parseOptParams(text));
}

TEST(Parameters, Splitting) {
  const std::pair<std::string, param_map> cases[] = {
      {"", {}},
      {",,opt(1),,maxtris(5000),", {{"opt", "1"}, {"maxtris", "5000"}}},
      {"opt(1),opt(3),OPT(2)", {{"opt", "1"}}},
      {"opt(1), flat(false)", {{"opt", "1"}, {" flat", "false"}}},
      {"IDMAP( Scene (a) )tail", {{"idmap", " Scene (a"}}},
      {"help,opt=1,flat(,toworld)", {}},
      {"idmap(a,b)", {}},
      {"()", {{"", ""}}},
      {"a)b(c)", {{"a)b", ""}}},
      {"\xc3\x84(1)", {{"\xc3\x84", "1"}}},
      {std::string("o\0(1)", 5), {{std::string("o\0", 2), "1"}}},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(parseOptParams(text), expected) << text;
}

TEST(Parameters, Numbers) {
  const std::pair<std::string, int> ints[] = {
      {"12abc", 12},      {" \t\n-7", -7},    {"+3", 3},  {"1.9", 1},
      {"0x10", 0},        {"010", 10},        {"", 99},   {"abc", 99},
      {"- 1", 99},        {"1,000", 1},       {"1 2", 1}, {"2147483647", 2147483647},
      {"2147483648", 99}, {"-2147483649", 99}};
  for (const auto& [text, expected] : ints) EXPECT_EQ(paramToInt(text, 99), expected) << text;
  const std::pair<std::string, unsigned> uints[] = {
      {"4294967295", ~0u}, {"4294967296", 99}, {"-1", ~0u}, {"5000)", 5000}, {"x5", 99}};
  for (const auto& [text, expected] : uints) EXPECT_EQ(paramToUInt(text, 99), expected) << text;
  const std::pair<std::string, float> floats[] = {
      {"2.5m", 2.5f}, {"1e3", 1000}, {".5", .5f}, {"-3", -3},   {"1e99", 99},
      {"nan", 99},    {"inf", 99},   {"1e", 99},  {"0x1p4", 0}, {"1.5,2", 1.5f}};
  for (const auto& [text, expected] : floats) EXPECT_EQ(paramToFloat(text, 99), expected) << text;
  EXPECT_EQ(paramToInt("x"), 0);
}

TEST(Parameters, Booleans) {
  for (const char* text : {"1", "true", "1x", " 1", "+1", "01", "true1", " true", "2true", "-true"})
    EXPECT_TRUE(paramToBool(text)) << text;
  for (const char* text :
       {"0", "false", "2", "TRUE", "yes", "", "0x1", "-1", "tru", "2false", "00"})
    EXPECT_FALSE(paramToBool(text)) << text;
}

// What a program has made of the global locale changes nothing.
TEST(Parameters, TheGlobalLocaleDoesNotCount) {
  struct other_numbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
    std::string do_truename() const override { return "ja"; }
  };
  const std::locale before = std::locale::global(std::locale({}, new other_numbers));
  EXPECT_EQ(paramToFloat("1.5"), 1.5f);
  EXPECT_EQ(paramToInt("1.000"), 1);
  EXPECT_TRUE(paramToBool("true") && !paramToBool("ja"));
  std::locale::global(before);
}

// Each option by its name reaches its own field, and nothing else.
TEST(Parameters, OptionsOfTheRun) {
  const auto fields = [](const tree_options& o) {
    using field = std::pair<std::string, bool>;
    return std::vector<field>{{"maxtris", o.maxtris == 1},
                              {"maxtexturesize", o.maxtexturesize == 1},
                              {"mostusedmaterial", o.mostusedmaterial},
                              {"removelod", o.removelod},
                              {"removeswitch", o.removeswitch},
                              {"ambientocclusion", o.ambientocclusion == 1},
                              {"ambientgutout", o.ambientgutout},
                              {"buildhull", o.buildhull},
                              {"buildhullwithcolors", o.buildhullwithcolors},
                              {"idmapinroot", o.idmapinroot},
                              {"onegeometry", o.onegeometry},
                              {"help", o.help.has_value()},
                              {"prefix", o.prefix == "1"},
                              {"centerbb", o.centerBB == 1.0f}};
  };
  const auto has = [&](const std::string& name) {
    std::string reached;
    for (const auto& [field, is_set] : fields(options_of(name + "(1)")))
      if (is_set) reached += field;
    return reached;
  };
  for (const auto& [name, unused] : fields({})) EXPECT_EQ(has(name), name);
  EXPECT_EQ(has("removelodparts"), "") << "the name in the text for users is no option";
  EXPECT_EQ(options_of("maxtris(abc)").maxtris, 0u);
  EXPECT_TRUE(options_of("HELP()").help && !options_of("help").help);
  EXPECT_EQ(options_of("Prefix()").prefix, "");
  EXPECT_EQ(options_of("centerBB(2.5)").centerBB, 2.5f);
  EXPECT_FALSE(options_of("centerBB(wide)").centerBB) << "nothing is placed without a size";
}

std::string block_of(const mergeGeo_setup& setup) {
  test::said said;
  printMergeGeoSetup(setup);
  said.end();
  EXPECT_EQ(said.err, "");
  return said.out;
}

const std::string default_block =
    "Cacheopt:       0\n"
    "CalcNormals:    0\n"
    "Flat:           1\n"
    "IDMAP:          \"\"\n"
    "OPT:            1\n"
    "OptimizeTC:     2\n"
    "TexCoords:      2\n"
    "ToWorld:        1\n"
    "VertexColor:    -1\n"
    "AddColorsTex:   0\n"
    "deleteUnusedTC: 1\n"
    "mergeSameName:  0\n"
    "alphaGeometry:  0\n"
    "ignoreMaterial: 0\n"
    "keepRenderFalse:0\n";

/// The default block with one value exchanged.
std::string block_with(const std::string& label, const std::string& value) {
  std::string text = default_block;
  const std::size_t begin = text.find(label) + 16;
  return text.replace(begin, text.find('\n', begin) - begin, value);
}

// Each option reaches its own line of the block and no other; the four that have no line are looked
// at in the structure.
TEST(Parameters, OptionsOfTheMergeAndTheirBlock) {
  EXPECT_EQ(block_of(setup_of("help")), default_block);
  const struct {
    std::string option, label, value;
  } cases[] = {
      {"cacheopt(1)", "Cacheopt:", "1"},
      {"calcnormals(true)", "CalcNormals:", "1"},
      {"flat(no)", "Flat:", "0"},
      {"IDMAP(false)", "IDMAP:", "\"false\""},
      {"opt(3)", "OPT:", "3"},
      {"optimizeTC(-4)", "OptimizeTC:", "-4"},
      {"texcoords(1000)", "TexCoords:", "1000"},
      {"toworld(0)", "ToWorld:", "0"},
      {"vertexcolor(12)", "VertexColor:", "12"},
      {"addcolorstex(1)", "AddColorsTex:", "1"},
      {"deleteunusedtc(0)", "deleteUnusedTC:", "0"},
      {"mergesamename(1)", "mergeSameName:", "1"},
      {"alphageometry(1)", "alphaGeometry:", "1"},
      {"ignorematerial(1)", "ignoreMaterial:", "1"},
      {"keeprenderfalse(1)", "keepRenderFalse:", "1"},
      {"texcoords(many)", "TexCoords:", "2"},
  };
  for (const auto& each : cases)
    EXPECT_EQ(block_of(setup_of(each.option)), block_with(each.label, each.value)) << each.option;
  const auto unprinted = [](const mergeGeo_setup& s) {
    return std::tuple(s.numthreads, s.silent, s.storeondisk, s.mergehierarchy);
  };
  using values = std::tuple<int, bool, bool, bool>;
  EXPECT_EQ(unprinted(setup_of("opt(1)")), values(1, false, false, false));
  EXPECT_EQ(unprinted(setup_of("numthreads(8)")), values(8, false, false, false));
  EXPECT_EQ(unprinted(setup_of("silent(1)")), values(1, true, false, false));
  EXPECT_EQ(unprinted(setup_of("storeondisk(1)")), values(1, false, true, false));
  EXPECT_EQ(unprinted(setup_of("mergehierarchy(1)")), values(1, false, false, true));
}

// Whoever used the stream before may have left it in any state; it stays so.
TEST(Parameters, TheBlockDoesNotDependOnTheStream) {
  const std::ios_base::fmtflags before = std::cout.flags();
  const std::string expected = block_of(setup_of("texcoords(1000),idmap(x)"));
  std::cout << std::hex << std::boolalpha << std::showbase << std::setw(30) << std::setfill('#');
  EXPECT_EQ(block_of(setup_of("texcoords(1000),idmap(x)")), expected);
  EXPECT_EQ(std::cout.width(), 30);
  std::cout.width(0);
  std::cout.fill(' ');
  std::cout.flags(before);
}

TEST(Parameters, WarningsNameWhatIsPassedOver) {
  std::string text;
  for (const auto& [token, reason] : checkOptParams(
           "opt(1),,help,maxTris(5000), flat(0),OPT(2),idmap(a,b),removeLODParts(1),numthreads(x),"
           "centerbb(1),idmap(x)tail,flat(no),help(),vertexcolor(5k),toworld( 1 ),silent(true1),"
           "maxTextureSize(64),ambientOcclusion(-4)"))
    text += "[" + token + "] " + reason + "\n";
  EXPECT_EQ(text,
            "[help] is not of the form name(value)\n"
            "[ flat(0)] is no option\n"
            "[OPT(2)] was given before: the first counts\n"
            "[idmap(a] is not of the form name(value)\n"
            "[b)] is not of the form name(value)\n"
            "[removeLODParts(1)] is no option\n"
            "[numthreads(x)] needs a number: the default stands\n"
            "[idmap(x)tail] goes on behind its value: the rest is passed over\n"
            "[flat(no)] is neither true nor false: it counts as false\n"
            "[vertexcolor(5k)] goes on behind its value: the rest is passed over\n"
            "[silent(true1)] goes on behind its value: the rest is passed over\n"
            "[ambientOcclusion(-4)] is below 0\n");
  EXPECT_EQ(checkOptParams("opt(4)").at(0).reason, "is above 3");
}

TEST(Parameters, TheExampleForUsersIsAccepted) {
  const std::string text = optTreeDoc(), example = "opt(1),maxtris(5000),flat(true),idmap(false)";
  EXPECT_NE(text.find("\nExample: " + example + "\n"), text.npos);
  EXPECT_TRUE(checkOptParams(example).empty());
}

}  // namespace
}  // namespace morlu::osg
