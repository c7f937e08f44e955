// Hechos.cs - writes down what the compiled raw layer declares, for csharp_test.py to compare with the list.
using System;
using System.Linq;
using System.Reflection;
using System.Runtime.InteropServices;
using Ivrexa;

static class Hechos
{
    static string Type(Type type, ICustomAttributeProvider where)
    {
        MarshalAsAttribute how = where.GetCustomAttributes(typeof(MarshalAsAttribute), false)
                                     .Cast<MarshalAsAttribute>().SingleOrDefault();
        if (how == null)
            return type.Name;
        bool isTexts = type == typeof(string[]);
        return type.Name + "/" + how.Value + (isTexts ? "/" + how.ArraySubType : "");
    }

    static string Signature(MethodInfo method)
    {
        return method.ReturnType.Name + "\t" +
               string.Join("\t", method.GetParameters().Select(p => p.Name + "=" + Type(p.ParameterType, p)));
    }

    static void Functions()
    {
        foreach (MethodInfo method in typeof(Native).GetMethods(BindingFlags.Public | BindingFlags.Static)) {
            object how = method.GetCustomAttributes(typeof(DllImportAttribute), false)[0];
            DllImportAttribute import = (DllImportAttribute)how;
            Console.WriteLine("import\t{0}\t{1} {2} {3} {4} {5} {6} {7}", method.Name, import.Value, import.EntryPoint,
                              import.CallingConvention, import.ExactSpelling, import.BestFitMapping,
                              import.ThrowOnUnmappableChar, import.SetLastError);
            Console.WriteLine("function\t{0}\t{1}", method.Name, Signature(method));
        }
    }

    static void Types()
    {
        foreach (Type type in typeof(Native).Assembly.GetTypes().Where(t => t.IsPublic)) {
            if (type.IsEnum) {
                foreach (object value in Enum.GetValues(type))
                    Console.WriteLine("constant\t{0}\t{1}", value, Convert.ToInt64(value));
            } else if (type.IsValueType) {
                Console.WriteLine("record\t{0}\t{1}", type.Name, Marshal.SizeOf(type));
                foreach (FieldInfo field in type.GetFields())
                    Console.WriteLine("field\t{0}\t{1}\t{2}\t{3}", type.Name, field.Name, field.FieldType.Name,
                                      Marshal.OffsetOf(type, field.Name));
            } else if (typeof(MulticastDelegate).IsAssignableFrom(type)) {
                object how = type.GetCustomAttributes(typeof(UnmanagedFunctionPointerAttribute), false)[0];
                Console.WriteLine("import\t{0}\t{1}", type.Name,
                                  ((UnmanagedFunctionPointerAttribute)how).CallingConvention);
                Console.WriteLine("delegate\t{0}\t{1}", type.Name, Signature(type.GetMethod("Invoke")));
            }
        }
        foreach (FieldInfo field in typeof(Native).GetFields().Where(f => f.FieldType != typeof(string)))
            Console.WriteLine("constant\t{0}\t{1}", field.Name, Convert.ToInt64(field.GetRawConstantValue()));
    }

    static void Main()
    {
        Functions();
        Types();
    }
}
