// The options file: the input is korvane.ini. Saved as the options dialog
// saves it and read again, it gives the same options.
#include "app/options_file.h"
#include "fuzz_world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzErrors errors;
  const std::string path = Scratch().File("korvane.ini");
  Scratch().Write("korvane.ini", std::string(AsView(data, size)));
  Options loaded;
  modMain::LoadOptions(path, loaded, errors);
  Require(modMain::SaveOptions(path, loaded), "korvane.ini not written");
  Options again;
  modMain::LoadOptions(path, again, errors);
  Require(modMain::OptionsFileText(again) == modMain::OptionsFileText(loaded),
          "an option changed in a save");
  return 0;
}
