# Writes a source file that holds the files of the page: cmake -DPAGE=folder -DOUTPUT=file -P embed.cmake
# For page.js it defines PAGE_JS, and so on, as pagefiles.h declares them.

set(source "#include \"devkit/cloud/pagefiles.h\"\n\nnamespace localcloud {\n\n")
foreach(name IN ITEMS approve.html index.html page.js style.css)
  file(READ "${PAGE}/${name}" content)
  string(MAKE_C_IDENTIFIER "${name}" constant)
  string(TOUPPER "${constant}" constant)
  string(APPEND source "const std::string_view ${constant} = R\"====(${content})====\";\n")
endforeach()
string(APPEND source "\n} // namespace localcloud\n")
file(WRITE "${OUTPUT}" "${source}")
