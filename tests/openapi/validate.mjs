// Holds a description against the rules of OpenAPI: node validate.mjs FILE
import { readFileSync } from "node:fs";
import { Validator } from "@seriousme/openapi-schema-validator";
const validator = new Validator();
const { valid, errors } = await validator.validate(JSON.parse(readFileSync(process.argv[2], "utf8")));
console.log(valid ? `OpenAPI ${validator.version}: valid` : JSON.stringify(errors, null, 2));
process.exitCode = valid ? 0 : 1;
