# What doxygen writes, put right: word joiners that doxygen_page.awk has put in, and bars in the code of tables.
s|\xe2\x81\xa0||g
:bar
s/(<code>[^<]*)\\\|/\1|/
t bar
