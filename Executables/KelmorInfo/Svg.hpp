// Just enough of SVG for a chart. Lengths are in pixels.
#pragma once

#include <string>
#include <string_view>

class Svg {
 public:
  /// Elements are drawn one over the other in the order of the calls. `style` is more attributes.
  void Rect(double x, double y, double width, double height, const std::string& style,
            const std::string& tooltip = "");
  void Line(double x1, double y1, double x2, double y2, const std::string& style);
  /// `y` is that of the base line. Returns the x at which the text ends, as far as that can be told
  /// without the font.
  double Text(double x, double y, double size, const std::string& text, const std::string& style,
              const std::string& tooltip = "");

  /// The whole picture; `definitions` are patterns and the like.
  std::string Document(double width, double height, const std::string& definitions) const;

  /// How long a text is, about.
  static double TextWidth(std::string_view text, double size);
  /// How many characters have room, about.
  static std::size_t Room(double size, double width);
  /// The text, with its middle left out if it would be longer than `width`.
  static std::string Fitted(const std::string& text, double size, double width);
  /// The text as XML has it, whatever bytes it holds.
  static std::string Escaped(std::string_view text);

 private:
  void Add(const std::string& element, const std::string& content, const std::string& tooltip);
  std::string mBody;
};
