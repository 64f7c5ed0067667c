/**
 * Names of JSON members.
 */
#ifndef JSON_KEY_H
#define JSON_KEY_H

/** A name that lasts as long as the program: trees refer to it instead of copying it,
 *  which spares an allocation a member. Only a constant turns into one. */
class JsonKey {
  public:
    consteval JsonKey(const char *text) : text_(text) {}
    constexpr operator const char *() const { return text_; }

  private:
    const char *text_;
};

#endif
