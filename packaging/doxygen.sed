# Turns the ordinary comments of our headers into those that Doxygen reads: text above a declaration, and text behind one.
# What Doxygen takes for commands stands for itself.
/^ *\/\/ SPDX/d
# A specialisation in another namespace confuses it.
/^template <>$/{
  N
  /struct std::/!b
  :specialisation
  /};$/d
  N
  b specialisation
}
/\/\/ /{
  /^ *\/\//!b behind
  s/[\\@<>#&%]/\\&/g
  s,^( *)// ?,\1/// ,
  b
  :behind
  /[;,{)] +\/\/ /{
    s,([;\,{)] +)// ,\1///< ,
  }
}
s,^( *)//$,\1///,
