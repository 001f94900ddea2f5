#include "Executables/KelmorInfo/Svg.hpp"

#include <algorithm>

#include "Executables/KelmorInfo/Text.hpp"

namespace {

// This is the width of a character of a sans-serif font in parts of its size. It is rather too much
// than too little.
constexpr double sCharacterWidth = 0.58;

std::string Fixed(double value) {
  return ToText(value, std::chars_format::fixed, 2);
}

std::string Attribute(const char* name, double value) {
  return " " + std::string(name) + "=\"" + Fixed(value) + "\"";
}

}  // namespace

void Svg::Add(const std::string& element, const std::string& content, const std::string& tooltip) {
  const std::string name = element.substr(0, element.find(' '));
  const std::string title = tooltip.empty() ? "" : "<title>" + Escaped(tooltip) + "</title>";
  mBody += "<" + element;
  mBody += title.empty() && content.empty() ? "/>\n" : ">" + title + content + "</" + name + ">\n";
}

void Svg::Rect(double x, double y, double width, double height, const std::string& style,
               const std::string& tooltip) {
  Add("rect" + Attribute("x", x) + Attribute("y", y) + Attribute("width", width) +
          Attribute("height", height) + " " + style,
      "", tooltip);
}

void Svg::Line(double x1, double y1, double x2, double y2, const std::string& style) {
  Add("line" + Attribute("x1", x1) + Attribute("y1", y1) + Attribute("x2", x2) +
          Attribute("y2", y2) + " " + style,
      "", "");
}

double Svg::Text(double x, double y, double size, const std::string& text, const std::string& style,
                 const std::string& tooltip) {
  Add("text" + Attribute("x", x) + Attribute("y", y) + Attribute("font-size", size) + " " + style,
      Escaped(text), tooltip);
  return x + TextWidth(text, size);
}

std::string Svg::Document(double width, double height, const std::string& definitions) const {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\"" +
         Attribute("width", width) + Attribute("height", height) +
         // Lets a page that has less room show all of it.
         " viewBox=\"0 0 " + Fixed(width) + " " + Fixed(height) + "\"" +
         " font-family=\"Helvetica, Arial, 'DejaVu Sans', sans-serif\">\n<defs>" + definitions +
         "</defs>\n" + mBody + "</svg>\n";
}

double Svg::TextWidth(std::string_view text, double size) {
  return static_cast<double>(Characters(text)) * size * sCharacterWidth;
}

std::size_t Svg::Room(double size, double width) {
  return static_cast<std::size_t>(std::max(0.0, width / (size * sCharacterWidth) + 0.01));
}

std::string Svg::Fitted(const std::string& text, double size, double width) {
  return Shortened(text, Room(size, width));
}

std::string Svg::Escaped(std::string_view text) {
  const std::string valid = ValidUtf8(text);
  std::string escaped;
  for (std::size_t i = 0; i < valid.size(); ++i) {
    const char c = valid[i];
    const std::string_view rest = std::string_view(valid).substr(i);
    if (c == '&') {
      escaped += "&amp;";
    } else if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else if (c == '"') {
      escaped += "&quot;";
    } else if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') {
      escaped += "\xEF\xBF\xBD";  // XML has no control characters
    } else if (rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF")) {
      escaped += "\xEF\xBF\xBD";  // nor these two
      i += 2;
    } else {
      escaped += c;
    }
  }
  return escaped;
}
