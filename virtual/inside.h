/**
 * Telling libvap's own calls of libc from the agent's.
 */
#ifndef VIRTUAL_INSIDE_H
#define VIRTUAL_INSIDE_H

namespace vap {

/** While one lives, what its thread does is libvap's own: libc calls are neither
 *  redirected nor counted, and threads that it starts are none of the agent's. */
class Inside {
  public:
    Inside();
    ~Inside();
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;
};

/** The other way round, around a call back into the agent. */
class Outside {
  public:
    Outside();
    ~Outside();
    Outside(const Outside &) = delete;
    Outside &operator=(const Outside &) = delete;

  private:
    int depth_;
};

/** Is the calling thread inside libvap's own work? */
bool inside();

}  // namespace vap

#endif
