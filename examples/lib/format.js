// format.js: one "name: value" line. An included file hands a value back by
// assigning it to $result; here, the function that makes the line.
$result = function (name, value) {
    return name + ": " + value;
};
