// A small writer of JSON text for the simulator's summary: objects and arrays with the commas
// placed, two-space indentation, strings escaped.
#ifndef QUELLD_SIM_JSON_WRITER_H_
#define QUELLD_SIM_JSON_WRITER_H_

#include <cstdint>
#include <string>
#include <vector>

namespace quelld_sim {

// Every call takes the member name inside an object, and null inside an array. Text is taken as
// bytes: quotes, backslashes, control characters and bytes from 0x80 up are written as escapes,
// so the output is always valid (ASCII) JSON whatever the input.
class JsonWriter {
 public:
  JsonWriter& BeginObject(const char* key = nullptr);
  JsonWriter& EndObject();
  JsonWriter& BeginArray(const char* key);
  JsonWriter& EndArray();
  JsonWriter& Str(const char* key, const std::string& value);
  JsonWriter& Int(const char* key, int64_t value);
  JsonWriter& Num(const char* key, double value);  // not finite: null
  JsonWriter& Bool(const char* key, bool value);
  JsonWriter& Null(const char* key);
  // The text; complete once every object and array is closed.
  const std::string& text() const { return out_; }

 private:
  void Item(const char* key);
  void Close(char bracket);

  std::string out_;
  std::vector<bool> has_items_;  // per open object or array
};

}  // namespace quelld_sim

#endif  // QUELLD_SIM_JSON_WRITER_H_
