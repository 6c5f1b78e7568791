# Writes the files of the page into a source file, as the constants of pagefiles.h (page.js becomes PAGE_JS):
# cmake -DPAGE=folder -DOUTPUT=file -P embed.cmake

set(source "#include \"devkit/cloud/pagefiles.h\"\n\nnamespace localcloud {\n\n")
foreach(name IN ITEMS approve.html index.html page.js style.css)
  file(READ "${PAGE}/${name}" content)
  string(MAKE_C_IDENTIFIER "${name}" constant)
  string(TOUPPER "${constant}" constant)
  string(APPEND source "const std::string_view ${constant} = R\"====(${content})====\";\n")
endforeach()
string(APPEND source "\n} // namespace localcloud\n")
file(WRITE "${OUTPUT}" "${source}")
