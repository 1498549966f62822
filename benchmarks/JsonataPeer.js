// What the jsonata package takes for one expression, for JsonataBenchmark.cpp.
//
//     node JsonataPeer.js PACKAGE compile|evaluate     with QV_EXPRESSION and QV_DOCUMENT in the environment
//
// Prints the nanoseconds of one operation and, on a second line, the expression's value as JSON. Loops until
// the code is compiled by the engine, then takes the fastest of several rounds, by the clock or by processor
// time, whichever is less: neither what else the machine did nor the engine's other threads count.
const jsonata = require(process.argv[2]);
const expression = process.env.QV_EXPRESSION;
const document = JSON.parse(process.env.QV_DOCUMENT);

const rounds = 12;
const warmUpRounds = 4;
const roundNs = 100e6;

const compiled = jsonata(expression);
let sink;
const operations = {
    compile: () => {
        sink = jsonata(expression);
    },
    evaluate: async () => {
        sink = await compiled.evaluate(document);
    },
};

async function nsPerOperation(run, isAsync, count) {
    const cpuBegin = process.cpuUsage();
    const begin = process.hrtime.bigint();
    if (isAsync)
        for (let i = 0; i < count; ++i)
            await run();
    else
        for (let i = 0; i < count; ++i)
            run();
    const elapsed = Number(process.hrtime.bigint() - begin);
    const cpu = process.cpuUsage(cpuBegin);
    return Math.min(elapsed, (cpu.user + cpu.system) * 1e3) / count;
}

async function main() {
    const isAsync = process.argv[3] === 'evaluate';
    const run = operations[process.argv[3]];
    let best = Infinity;
    let count = 100;
    for (let round = 0; round < rounds; ++round) {
        const ns = await nsPerOperation(run, isAsync, count);
        if (round >= warmUpRounds)
            best = Math.min(best, ns);
        count = Math.max(1, Math.round(roundNs / ns));
    }
    console.log(best);
    console.log(JSON.stringify(await compiled.evaluate(document)));
}

main();
