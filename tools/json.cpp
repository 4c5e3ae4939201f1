// The JSON writer behind --json: nlohmann's, with the number form the documents have always had.
#include "json.h"

#include "loaders.h"

namespace tvx::cli {
namespace {

// Whole doubles as integers, in the range where every such double is one exactly.
void WholeNumbersAsIntegers(Json& value) {
  if (value.is_structured()) {
    for (Json& item : value) WholeNumbersAsIntegers(item);
  } else if (value.is_number_float()) {
    const double number = value.get<double>();
    if (std::isfinite(number) && std::fabs(number) < 1e16 && number == std::trunc(number))
      value = static_cast<int64_t>(number);
  }
}

}  // namespace

void AddNulls(Json& object, std::initializer_list<const char*> keys) {
  for (const char* key : keys) object[key] = nullptr;
}

Json NumberOrNull(const std::string& text) {
  double value = 0;
  return ParseNumber(text, &value) ? Json(value) : Json();
}

std::string Dump(const Json& document) {
  Json copy = document;
  WholeNumbersAsIntegers(copy);
  return copy.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tvx::cli
